// The transforms against a double-precision DFT, and their identities, at all six lengths.

#include "qvvoice/dsp/fft.h"

#include <complex>
#include <numbers>

#include "support.h"

namespace {

using namespace qv::test;

constexpr int32_t lengths[] = {128, 160, 256, 320, 512, 640};
constexpr double rounding = 1e-6; // about 8 float roundings of a transform of log2(640) stages

struct Fft : testing::Test {
  void SetUp() override { VOICE_FftInit(); }
  void TearDown() override { VOICE_FftDestroy(); }
};

std::vector<float> forward(std::vector<float> frame) {
  VOICE_Fft(frame.data(), frame.data(), int32_t(frame.size()));
  return frame;
}

std::vector<float> inverse(std::vector<float> frame) {
  VOICE_Ifft(frame.data(), frame.data(), int32_t(frame.size()));
  return frame;
}

/// Packed spectrum from the definition, scaled by 1/n.
std::vector<double> packed_dft(const std::vector<float> &frame) {
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

TEST_F(Fft, matches_the_definition_in_place_or_not) {
  for (const int32_t n : lengths) {
    const auto frame = noise_values(uint32_t(n), size_t(n));
    std::vector<float> separate(frame.size());
    VOICE_Fft(frame.data(), separate.data(), n);
    EXPECT_LT(relative_error(packed_dft(frame), separate), rounding) << n;
    EXPECT_EQ(separate, forward(frame)) << n;
    std::vector<float> back(frame.size());
    VOICE_Ifft(separate.data(), back.data(), n);
    EXPECT_EQ(back, inverse(separate)) << n;
  }
}

TEST_F(Fft, each_transform_undoes_the_other) {
  for (const int32_t n : lengths) {
    const auto frame = noise_values(uint32_t(n) + 1, size_t(n), 32768.f);
    EXPECT_LT(relative_error(frame, inverse(forward(frame))), rounding) << n;
    EXPECT_LT(relative_error(frame, forward(inverse(frame))), rounding) << n;
  }
}

TEST_F(Fft, impulse_is_flat_and_alternation_is_the_last_value) {
  for (const int32_t n : lengths) {
    std::vector<float> impulse(size_t(n), 0.f), alternating(size_t(n), 1.f);
    impulse[0] = 1;
    for (size_t t = 1; t < alternating.size(); t += 2)
      alternating[t] = -1;
    const auto flat = forward(impulse), nyquist = forward(alternating);
    for (size_t i = 0; i < flat.size(); ++i) {
      const bool imaginary = i > 0 && i % 2 == 0;
      EXPECT_FLOAT_EQ(flat[i], imaginary ? 0.f : 1.f / float(n)) << n << " at " << i;
      EXPECT_NEAR(nyquist[i], i + 1 == flat.size() ? 1.f : 0.f, 1e-7) << n << " at " << i;
    }
  }
}

TEST_F(Fft, other_length_is_named_on_standard_output_and_writes_nothing) {
  const std::vector<float> in(1024, 1.f);
  for (const int32_t n : {0, -128, 64, 127, 1024}) {
    std::vector<float> out(1024, 7.f);
    testing::internal::CaptureStdout();
    VOICE_Fft(in.data(), out.data(), n);
    VOICE_Ifft(in.data(), out.data(), n);
    std::fflush(stdout);
    const std::string message = "Error: No support for FFT length!\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), message + message) << n;
    EXPECT_EQ(out, std::vector<float>(1024, 7.f)) << n;
  }
}

} // namespace
