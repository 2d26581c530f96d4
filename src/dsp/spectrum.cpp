#include "qvvoice/dsp/spectrum.h"

#include <algorithm>

#include "dsp/fma.h"

namespace {

float bin_power(float re, float im) { return qv::fma(re, re, im * im); }

// GCC 12 turns the alternating signs of a complex product into fused add-subtract instructions, against
// -ffp-contract=off: this kernel is compiled without them. Not inlined, or the caller's options hold.
#if defined(__x86_64__) && defined(__FMA__) && !defined(__clang__)
#define QV_NO_FMA __attribute__((noinline, target("no-fma")))
#else
#define QV_NO_FMA
#endif

/// out = sum of X_j * Y_j, or of X_j * conj(Y_j).
template <bool conjugate>
QV_NO_FMA void product_sum(const float *x, const float *y, float *__restrict out, int32_t n, int32_t blocks) {
  std::fill_n(out, n, 0.f);
  for (int32_t j = 0; j < blocks; ++j, x += n, y += n) {
    out[0] += x[0] * y[0];
    for (int32_t k = 1; k < n / 2; ++k) {
      const float a = x[2 * k - 1], b = x[2 * k], c = y[2 * k - 1], d = y[2 * k];
      out[2 * k - 1] += conjugate ? a * c + b * d : a * c - b * d;
      out[2 * k] += conjugate ? b * c - a * d : b * c + a * d;
    }
    out[n - 1] += x[n - 1] * y[n - 1];
  }
}

} // namespace

void VOICE_PowerSpectrumCcum(const float *spectrum, float *power, int32_t n) {
  power[0] = spectrum[0] * spectrum[0];
  for (int32_t k = 1; k < n / 2; ++k)
    power[k] = bin_power(spectrum[2 * k - 1], spectrum[2 * k]);
  power[n / 2] = spectrum[n - 1] * spectrum[n - 1];
}

void VOICE_PowerSpectrumAccum(const float *spectrum, float *power, int32_t n) {
  power[0] = qv::fma(spectrum[0], spectrum[0], power[0]);
  for (int32_t k = 1; k < n / 2; ++k)
    power[k] += bin_power(spectrum[2 * k - 1], spectrum[2 * k]);
  power[n / 2] = qv::fma(spectrum[n - 1], spectrum[n - 1], power[n / 2]);
}

void VOICE_SpectralMulAccum(const float *x, const float *y, float *out, int32_t n, int32_t blocks) {
  product_sum<false>(x, y, out, n, blocks);
}

void VOICE_SpectralCorrAccum(const float *x, const float *y, float *out, int32_t n, int32_t blocks) {
  product_sum<true>(x, y, out, n, blocks);
}
