#include "qvvoice/dsp/spectrum.h"

#include <algorithm>

#include "dsp/fma.h"

namespace {

/// The shortest packed spectrum is DC and Nyquist; a smaller n counts as that.
int32_t nyquist_bin(int32_t n) { return std::max(n / 2, 1); }

float bin_power(float re, float im) { return qv::fma(re, re, im * im); }

/// out = sum of X_j * Y_j, or of X_j * conj(Y_j). Real and imaginary parts take a loop each: side by side gcc 12 makes
/// one alternating add-subtract of them, and fuses it with the products in spite of -ffp-contract=off.
template <bool conjugate>
void product_sum(const float *x, const float *y, float *__restrict out, int32_t n, int32_t blocks) {
  std::fill_n(out, n, 0.f);
  for (int32_t j = 0; j < blocks; ++j, x += n, y += n) {
    out[0] += x[0] * y[0];
    for (int32_t k = 1; k < n / 2; ++k) {
      const float a = x[2 * k - 1], b = x[2 * k], c = y[2 * k - 1], d = y[2 * k];
      out[2 * k - 1] += conjugate ? a * c + b * d : a * c - b * d;
    }
    for (int32_t k = 1; k < n / 2; ++k) {
      const float a = x[2 * k - 1], b = x[2 * k], c = y[2 * k - 1], d = y[2 * k];
      out[2 * k] += conjugate ? b * c - a * d : b * c + a * d;
    }
    out[n - 1] += x[n - 1] * y[n - 1];
  }
}

} // namespace

void VOICE_PowerSpectrumCcum(const float *spectrum, float *power, int32_t n) {
  const int32_t nyquist = nyquist_bin(n);
  power[0] = spectrum[0] * spectrum[0];
  for (int32_t k = 1; k < nyquist; ++k)
    power[k] = bin_power(spectrum[2 * k - 1], spectrum[2 * k]);
  power[nyquist] = spectrum[2 * nyquist - 1] * spectrum[2 * nyquist - 1];
}

void VOICE_PowerSpectrumAccum(const float *spectrum, float *power, int32_t n) {
  const int32_t nyquist = nyquist_bin(n);
  power[0] = qv::fma(spectrum[0], spectrum[0], power[0]);
  for (int32_t k = 1; k < nyquist; ++k)
    power[k] += bin_power(spectrum[2 * k - 1], spectrum[2 * k]);
  power[nyquist] = qv::fma(spectrum[2 * nyquist - 1], spectrum[2 * nyquist - 1], power[nyquist]);
}

void VOICE_SpectralMulAccum(const float *x, const float *y, float *out, int32_t n, int32_t blocks) {
  product_sum<false>(x, y, out, n, blocks);
}

void VOICE_SpectralCorrAccum(const float *x, const float *y, float *out, int32_t n, int32_t blocks) {
  product_sum<true>(x, y, out, n, blocks);
}
