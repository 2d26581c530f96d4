// Initialisation and tear-down.

#include <cstdio>
#include <memory>

#include "api/pipeline.h"
#include "config/fields.h"
#include "dsp/arrays.h"
#include "qvvoice/api/process.h"
#include "qvvoice/dsp/fft.h"
#include "qvvoice/dsp/filter_bank.h"
#include "qvvoice/qvvoice.h"

VoiceProcess g_stVoiceProcess;
int32_t g_swRet;
qv::api::Session qv::api::session;

namespace {

using qv::api::session;
using qv::config::Image;

void initialise_modules(const VoicePara &para, VoiceProcess &state) {
  state = {};
  state.swSampleRate = para.swSampleRate;
  state.swFrameLen = para.swFrameLen;
  VOICE_FftInit();
  VOICE_SignalInit(para.swSampleRate, qv::config::band_count(para.swSampleRate), para.swFrameLen);
  AEC_Init(&para.stAec, &state.stAec);
  ANR_Init(&para.stAnrTx, &state.stAnrTx);
  ANR_Init(&para.stAnrRx, &state.stAnrRx);
  AGC_Init(&para.stAgcTx, &state.stAgcTx);
  AGC_Init(&para.stAgcRx, &state.stAgcRx);
  EQ_Init(&para.stEqTx, &state.stEqTx);
  EQ_Init(&para.stEqRx, &state.stEqRx);
  CNG_Init(&para.stCngTx, &state.stCngTx);
  CNG_Init(&para.stCngAux, &state.stCngAux);
}

void destroy_modules(VoiceProcess &state) {
  VOICE_FftDestroy();
  VOICE_SignalDestroy();
  AEC_Destroy(&state.stAec);
  ANR_Destroy(&state.stAnrTx);
  ANR_Destroy(&state.stAnrRx);
  AGC_Destroy(&state.stAgcTx);
  AGC_Destroy(&state.stAgcRx);
  EQ_Destroy(&state.stEqTx);
  EQ_Destroy(&state.stEqRx);
  CNG_Destroy(&state.stCngTx);
  CNG_Destroy(&state.stCngAux);
}

void release() {
  if (session.ready)
    destroy_modules(g_stVoiceProcess);
  session = {};
}

/// Reads the words of a parameter file, little-endian on any host.
QvVoiceStatus read_image(const char *path, Image &image) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(path ? std::fopen(path, "rb") : nullptr, std::fclose);
  if (!file)
    return QV_VOICE_NO_FILE;
  uint8_t bytes[2 * qv::config::word_count];
  if (std::fread(bytes, 2, image.size(), file.get()) < image.size())
    return QV_VOICE_SHORT_FILE;
  for (size_t i = 0; i < image.size(); ++i)
    image[i] = int16_t(bytes[2 * i] | bytes[2 * i + 1] << 8);
  return QV_VOICE_OK;
}

int32_t initialise(const int16_t *image, int32_t sample_rate, int32_t frame_len) {
  if (image[qv::config::magic_word] == qv::config::magic)
    if (const int32_t refused = VOICE_SetPara_1(image, sample_rate, frame_len))
      return refused;
  release();
  qv::forget_allocation_failure();
  initialise_modules(g_stVoicePara, g_stVoiceProcess);
  session.ready = true;
  if (!qv::allocation_failed())
    return QV_VOICE_OK;
  release();
  return QV_VOICE_OUT_OF_MEMORY;
}

} // namespace

int32_t QV_VOICE_Init(const char *path, int32_t sampleRate, int32_t frameLen) {
  Image image{};
  const QvVoiceStatus status = read_image(path, image);
  return g_swRet = status != QV_VOICE_OK ? status : initialise(image.data(), sampleRate, frameLen);
}

int32_t QV_VOICE_InitImage(const int16_t *image, int32_t sampleRate, int32_t frameLen) {
  return g_swRet = image ? initialise(image, sampleRate, frameLen) : QV_VOICE_BAD_ARGUMENT;
}

int32_t QV_VOICE_Destory(void) {
  if (g_swRet == QV_VOICE_OK)
    release();
  return g_swRet;
}
