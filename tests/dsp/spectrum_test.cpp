// The transforms against a double-precision DFT, and the kernels over packed spectra.

#include "qvvoice/dsp/spectrum.h"

#include <complex>
#include <numbers>

#include "qvvoice/dsp/fft.h"
#include "support.h"

namespace {

using namespace qv::test;

constexpr int32_t lengths[] = {128, 160, 256, 320, 512, 640};
constexpr double rounding = 1e-6; // about 8 float roundings of a transform of log2(640) stages

struct Spectrum : testing::Test {
  void SetUp() override { VOICE_FftInit(); }
  void TearDown() override { VOICE_FftDestroy(); }
};

using Values = std::vector<float>;

Values transformed(void (*transform)(const float *, float *, int32_t), Values frame) {
  transform(frame.data(), frame.data(), int32_t(frame.size()));
  return frame;
}

/// Packed spectrum from the definition, scaled by 1/n.
std::vector<double> packed_dft(const Values &frame) {
  const size_t n = frame.size();
  std::vector<double> packed(n);
  for (size_t k = 0; k <= n / 2; ++k) {
    std::complex<double> sum;
    for (size_t t = 0; t < n; ++t)
      sum += double(frame[t]) * std::polar(1.0, -2 * std::numbers::pi * double(k * t % n) / double(n));
    packed[k == 0 ? 0 : 2 * k - 1] = sum.real() / double(n);
    if (k > 0 && k < n / 2)
      packed[2 * k] = sum.imag() / double(n);
  }
  return packed;
}

TEST_F(Spectrum, transforms_match_the_definition_and_undo_each_other_in_place_or_not) {
  for (const int32_t n : lengths) {
    const auto frame = noise_values(uint32_t(n), size_t(n), 32768.f);
    Values forward(frame.size()), back(frame.size());
    VOICE_Fft(frame.data(), forward.data(), n);
    VOICE_Ifft(frame.data(), back.data(), n);
    EXPECT_LT(relative_error(packed_dft(frame), forward), rounding) << n;
    EXPECT_EQ(forward, transformed(VOICE_Fft, frame)) << n;
    EXPECT_EQ(back, transformed(VOICE_Ifft, frame)) << n;
    EXPECT_LT(relative_error(frame, transformed(VOICE_Ifft, forward)), rounding) << n;
    EXPECT_LT(relative_error(frame, transformed(VOICE_Fft, back)), rounding) << n;
  }
}

TEST_F(Spectrum, other_length_is_named_on_standard_output_and_writes_nothing) {
  const Values in(1024, 1.f);
  for (const int32_t n : {0, -128, 64, 127, 1024}) {
    Values out(1024, -77.f);
    testing::internal::CaptureStdout();
    VOICE_Fft(in.data(), out.data(), n);
    VOICE_Ifft(in.data(), out.data(), n);
    std::fflush(stdout);
    const std::string message = "Error: No support for FFT length!\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), message + message) << n;
    EXPECT_EQ(out, Values(1024, -77.f)) << n;
  }
}

TEST_F(Spectrum, powers_accumulate_up_to_the_last_bin) {
  for (const int32_t n : lengths) {
    const auto packed = noise_values(1, size_t(n));
    const Values power = transformed(VOICE_PowerSpectrumCcum, packed);
    Values doubled = power;
    VOICE_PowerSpectrumAccum(packed.data(), doubled.data(), n);
    for (size_t k = 0; k <= size_t(n) / 2; ++k)
      EXPECT_FLOAT_EQ(doubled[k], 2 * power[k]) << n << ", bin " << k;
    EXPECT_EQ(doubled[size_t(n) / 2 + 1], packed[size_t(n) / 2 + 1]) << n << ", written behind the last bin";
  }
}

} // namespace
