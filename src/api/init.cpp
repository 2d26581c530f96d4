// Initialisation and tear-down of the process's call.

#include "api/image_file.h"
#include "api/process_call.h"
#include "config/convert.h"
#include "dsp/layout.h"

VoiceProcess g_stVoiceProcess;
int32_t g_swRet;
constinit qv::Call qv::api::process_call{g_stVoiceProcess, process_services, {}};

namespace {

using qv::api::process_call;
using qv::config::Image;

void release() {
  if (!process_call.ready())
    return;
  VOICE_FftDestroy();
  VOICE_SignalDestroy();
  process_call.destroy();
}

bool is_marked(const int16_t *image) { return image[qv::config::magic_word] == qv::config::magic; }

/// Starts every stage with what the last converted image left.
QvVoiceStatus start() {
  const int32_t rate = g_stVoicePara.swSampleRate, frame_len = g_stVoicePara.swFrameLen;
  VOICE_FftInit();
  const bool transforms = qv::has_all_transforms(g_stFft);
  const bool bank = qv::take_process_bank(float(rate), qv::band_count(rate), frame_len);
  if (transforms && bank && process_call.init({g_stVoicePara, qv::config::process_echo_control}, false))
    return QV_VOICE_OK;
  VOICE_FftDestroy();
  VOICE_SignalDestroy();
  return QV_VOICE_OUT_OF_MEMORY;
}

/// What a former initialisation took is returned first, whatever becomes of this one.
QvVoiceStatus initialise(const int16_t *image, int32_t sample_rate, int32_t frame_len) {
  release();
  if (is_marked(image) && VOICE_SetPara_1(image, sample_rate, frame_len) != 0)
    return QV_VOICE_REFUSED;
  return start();
}

/// An unmarked image converts nothing, so the layout asked for must be the one that the block holds, if it holds one.
bool layout_held(int32_t sample_rate, int32_t frame_len) {
  const VoicePara &held = g_stVoicePara;
  return qv::layout_served(sample_rate, frame_len) &&
         (held.swFrameLen == 0 || (held.swSampleRate == sample_rate && held.swFrameLen == frame_len));
}

} // namespace

int32_t QV_VOICE_Init(const char *path, int32_t sampleRate, int32_t frameLen) {
  Image image{};
  const QvVoiceStatus status = qv::api::read_image(path, image);
  if (status != QV_VOICE_OK) {
    release();
    return g_swRet = status;
  }
  return g_swRet = initialise(image.data(), sampleRate, frameLen);
}

int32_t QV_VOICE_InitImage(const int16_t *image, int32_t sampleRate, int32_t frameLen) {
  if (image && (is_marked(image) || layout_held(sampleRate, frameLen)))
    return g_swRet = initialise(image, sampleRate, frameLen);
  release();
  return g_swRet = image ? QV_VOICE_REFUSED : QV_VOICE_BAD_ARGUMENT;
}

int32_t QV_VOICE_Destory(void) {
  if (g_swRet == QV_VOICE_OK)
    release();
  return g_swRet;
}
