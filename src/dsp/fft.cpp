#include "qvvoice/dsp/fft.h"

#include <kissfft/kiss_fftr.h>

#include <array>
#include <cstdio>

#include "dsp/arrays.h"
#include "qvvoice/dsp/filter_bank.h"
#include "qvvoice/dsp/memory.h"

FftState g_stFft;

namespace {

constexpr std::array<int32_t, 6> lengths = {128, 256, 512, 160, 320, 640};
constexpr int32_t max_bins = QV_MAX_FRAME + 1;

/// The configuration for a length; null, with the message, when there is none.
const FftConfig *config_of(int32_t len) {
  for (size_t slot = 0; slot < lengths.size(); ++slot)
    if (lengths[slot] == len && g_stFft.config[slot])
      return g_stFft.config[slot];
  std::puts("Error: No support for FFT length!");
  return nullptr;
}

} // namespace

FftConfig *FftInit(int32_t len) {
  auto *config = static_cast<FftConfig *>(VOICE_Alloc(sizeof(FftConfig)));
  if (!config)
    return nullptr;
  config->forward = kiss_fftr_alloc(len, 0, nullptr, nullptr);
  config->backward = kiss_fftr_alloc(len, 1, nullptr, nullptr);
  config->len = len;
  if (config->forward && config->backward)
    return config;
  qv::note_allocation_failure();
  FftDestroy(config);
  return nullptr;
}

void FftDestroy(FftConfig *config) {
  if (!config)
    return;
  VOICE_Free(config->forward);
  VOICE_Free(config->backward);
  VOICE_Free(config);
}

void VOICE_FftInit(void) {
  for (size_t slot = 0; slot < lengths.size(); ++slot)
    g_stFft.config[slot] = FftInit(lengths[slot]);
}

void VOICE_FftDestroy(void) {
  for (FftConfig *&config : g_stFft.config) {
    FftDestroy(config);
    config = nullptr;
  }
}

void VOICE_Fft(const float *in, float *out, int32_t n) {
  const FftConfig *config = config_of(n);
  if (!config)
    return;
  kiss_fft_cpx bins[max_bins];
  kiss_fftr(config->forward, in, bins);
  const auto scale = float(1.0 / n);
  out[0] = bins[0].r * scale;
  for (int32_t k = 1; k < n / 2; ++k) {
    out[2 * k - 1] = bins[k].r * scale;
    out[2 * k] = bins[k].i * scale;
  }
  out[n - 1] = bins[n / 2].r * scale;
}

void VOICE_Ifft(const float *in, float *out, int32_t n) {
  const FftConfig *config = config_of(n);
  if (!config)
    return;
  kiss_fft_cpx bins[max_bins];
  bins[0] = {in[0], 0};
  for (int32_t k = 1; k < n / 2; ++k)
    bins[k] = {in[2 * k - 1], in[2 * k]};
  bins[n / 2] = {in[n - 1], 0};
  kiss_fftri(config->backward, bins, out);
}
