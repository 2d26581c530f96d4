#include "qvvoice/dsp/spectrum.h"

#include <algorithm>

#include "dsp/fma.h"

namespace {

/// The shortest packed spectrum is DC and Nyquist; a smaller n counts as that.
int32_t nyquist_bin(int32_t n) { return std::max(n / 2, 1); }

float bin_power(float re, float im) { return qv::fma(re, re, im * im); }

/// Bins first .. first + bins - 1 of the sum of X_j * Y_j, or of X_j * conj(Y_j). Real and imaginary parts apart, which
/// leaves gcc 12 no alternating add-subtract to fuse with the products in spite of -ffp-contract=off.
template <bool conjugate, int32_t bins>
void sum_products(const float *x, const float *y, float *out, int32_t n, int32_t blocks, int32_t first) {
  float re[bins] = {}, im[bins] = {};
  for (int32_t j = 0; j < blocks; ++j) {
    const float *u = x + j * n + 2 * first - 1, *v = y + j * n + 2 * first - 1;
    for (int32_t k = 0; k < bins; ++k) {
      const float a = u[2 * k], b = u[2 * k + 1], c = v[2 * k], d = v[2 * k + 1];
      re[k] += conjugate ? a * c + b * d : a * c - b * d;
      im[k] += conjugate ? b * c - a * d : b * c + a * d;
    }
  }
  for (int32_t k = 0; k < bins; ++k) {
    out[2 * (first + k) - 1] = re[k];
    out[2 * (first + k)] = im[k];
  }
}

/// The whole sum, in stretches of bins that stay in registers.
template <bool conjugate> void product_sum(const float *x, const float *y, float *out, int32_t n, int32_t blocks) {
  constexpr int32_t stretch = 16;
  float dc = 0, nyquist = 0;
  for (int32_t j = 0; j < blocks; ++j) {
    dc += x[j * n] * y[j * n];
    nyquist += x[j * n + n - 1] * y[j * n + n - 1];
  }
  int32_t k = 1;
  for (; k <= n / 2 - stretch; k += stretch)
    sum_products<conjugate, stretch>(x, y, out, n, blocks, k);
  for (; k < n / 2; ++k)
    sum_products<conjugate, 1>(x, y, out, n, blocks, k);
  out[0] = dc;
  out[n - 1] = nyquist;
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
