#include "qvvoice/dsp/fft.h"

#include <kissfft/kiss_fftr.h>

#include <algorithm>
#include <cstdio>
#include <initializer_list>
#include <iterator>

#include "dsp/services.h"
#include "qvvoice/dsp/memory.h"

FftState g_stFft;

namespace {

constexpr std::initializer_list<int32_t> lengths = {128, 256, 512, 160, 320, 640};
constexpr int32_t max_bins = QV_MAX_FRAME + 1;

/// The configuration for a length; null, with the message, when there is none.
const FftConfig *config_of(const FftState &fft, int32_t len) {
  for (size_t slot = 0; slot < lengths.size(); ++slot)
    if (lengths.begin()[slot] == len && fft.config[slot])
      return fft.config[slot];
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

namespace qv {

bool take_transforms(FftState &fft, std::initializer_list<int32_t> wanted) {
  bool all = true;
  for (size_t slot = 0; slot < lengths.size(); ++slot)
    if (std::find(wanted.begin(), wanted.end(), lengths.begin()[slot]) != wanted.end())
      all &= (fft.config[slot] = FftInit(lengths.begin()[slot])) != nullptr;
  return all;
}

bool has_all_transforms(const FftState &fft) { return !std::count(fft.config, std::end(fft.config), nullptr); }

void give_back_transforms(FftState &fft) {
  for (FftConfig *&config : fft.config) {
    FftDestroy(config);
    config = nullptr;
  }
}

void forward_transform(const FftState &fft, const float *in, float *out, int32_t n) {
  const FftConfig *config = config_of(fft, n);
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

void inverse_transform(const FftState &fft, const float *in, float *out, int32_t n) {
  const FftConfig *config = config_of(fft, n);
  if (!config)
    return;
  kiss_fft_cpx bins[max_bins];
  bins[0] = {in[0], 0};
  for (int32_t k = 1; k < n / 2; ++k)
    bins[k] = {in[2 * k - 1], in[2 * k]};
  bins[n / 2] = {in[n - 1], 0};
  kiss_fftri(config->backward, bins, out);
}

} // namespace qv

void VOICE_FftInit(void) { qv::take_transforms(g_stFft, lengths); }

void VOICE_FftDestroy(void) { qv::give_back_transforms(g_stFft); }

void VOICE_Fft(const float *in, float *out, int32_t n) { qv::forward_transform(g_stFft, in, out, n); }

void VOICE_Ifft(const float *in, float *out, int32_t n) { qv::inverse_transform(g_stFft, in, out, n); }
