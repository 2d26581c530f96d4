// Kernels over packed spectra, by the identities of the transform.

#include "qvvoice/dsp/spectrum.h"

#include "qvvoice/dsp/fft.h"
#include "support.h"

namespace {

using namespace qv::test;

constexpr int32_t n = 160;
constexpr size_t bins = n / 2 + 1;
constexpr float poison = -77.f;

struct Spectrum : testing::Test {
  void SetUp() override { VOICE_FftInit(); }
  void TearDown() override { VOICE_FftDestroy(); }
};

/// Packed spectra of consecutive blocks.
std::vector<float> spectra_of(const std::vector<float> &signal) {
  std::vector<float> spectra(signal.size());
  for (size_t at = 0; at < signal.size(); at += n)
    VOICE_Fft(signal.data() + at, spectra.data() + at, n);
  return spectra;
}

TEST_F(Spectrum, power_adds_up_to_the_energy_of_the_frame) {
  const auto frame = noise_values(1, n);
  const auto packed = spectra_of(frame);
  std::vector<float> power(n, poison);
  VOICE_PowerSpectrumCcum(packed.data(), power.data(), n);
  double energy = 0, sum = double(power[0]) + double(power[bins - 1]);
  for (const float x : frame)
    energy += double(x) * double(x) / n;
  for (size_t k = 1; k + 1 < bins; ++k) {
    sum += 2 * double(power[k]);
    EXPECT_FLOAT_EQ(power[k], packed[2 * k - 1] * packed[2 * k - 1] + packed[2 * k] * packed[2 * k]) << k;
  }
  EXPECT_NEAR(sum / energy, 1, 1e-6);
  EXPECT_EQ(std::count(power.begin() + bins, power.end(), poison), n - int64_t(bins)) << "written behind the last bin";

  auto in_place = packed;
  VOICE_PowerSpectrumCcum(in_place.data(), in_place.data(), n);
  EXPECT_TRUE(std::equal(in_place.begin(), in_place.begin() + bins, power.begin()));
  auto doubled = power;
  VOICE_PowerSpectrumAccum(packed.data(), doubled.data(), n);
  for (size_t k = 0; k < bins; ++k)
    EXPECT_FLOAT_EQ(doubled[k], 2 * power[k]) << k;
}

TEST_F(Spectrum, two_values_and_fewer_have_two_powers) {
  const float packed[] = {3.f, -4.f, poison};
  for (const int32_t count : {2, 1, 0}) {
    float power[] = {poison, poison, poison};
    VOICE_PowerSpectrumCcum(packed, power, count);
    VOICE_PowerSpectrumAccum(packed, power, count);
    EXPECT_EQ(power[0], 18.f) << count;
    EXPECT_EQ(power[1], 32.f) << count;
    EXPECT_EQ(power[2], poison) << count;
  }
}

// A product of spectra is a circular convolution of the frames, a product with the conjugate their circular
// correlation: 1/n of each, as both forward transforms are scaled.
TEST_F(Spectrum, products_convolve_and_correlate_and_sum_over_the_blocks) {
  for (const int32_t blocks : {0, 1, 2, 5}) {
    const auto length = size_t(blocks * n);
    const auto x = noise_values(2, length), y = noise_values(3, length);
    std::vector<double> convolved(n, 0.0), correlated(n, 0.0);
    for (size_t at = 0; at < length; at += n)
      for (size_t t = 0; t < n; ++t)
        for (size_t u = 0; u < n; ++u) {
          convolved[(t + u) % n] += double(x[at + t]) * double(y[at + u]) / n;
          correlated[(t + n - u) % n] += double(x[at + t]) * double(y[at + u]) / n;
        }
    const auto check = [&](auto kernel, const std::vector<double> &expected, const char *name) {
      std::vector<float> out(n, poison);
      kernel(spectra_of(x).data(), spectra_of(y).data(), out.data(), n, blocks);
      VOICE_Ifft(out.data(), out.data(), n);
      if (blocks == 0)
        EXPECT_EQ(out, std::vector<float>(n, 0.f)) << name;
      else
        EXPECT_LT(relative_error(expected, out), 2e-6) << name << " over " << blocks;
    };
    check(VOICE_SpectralMulAccum, convolved, "product");
    check(VOICE_SpectralCorrAccum, correlated, "correlation");
  }
}

} // namespace
