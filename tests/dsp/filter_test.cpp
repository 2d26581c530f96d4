// Time-domain filters against their difference equations, whatever the frames that the signal is cut into.

#include "qvvoice/dsp/filter.h"

#include "support.h"

namespace {

using namespace qv::test;

TEST(Preemphasis, is_one_fused_step_per_sample_across_frames) {
  const auto signal = noise_samples(1, 480, 32767);
  const std::vector<float> values(signal.begin(), signal.end());
  for (const float coef : {0.f, 0.9f, -0.35f}) {
    std::vector<float> expected, found(signal.size()), from_samples(signal.size());
    for (size_t i = 0; i < values.size(); ++i)
      expected.push_back(std::fma(i == 0 ? -0.f : -values[i - 1], coef, values[i]));
    float memory = 0, memory16 = 0;
    for (const auto &[at, count] : std::initializer_list<std::pair<int32_t, int32_t>>{{0, 1}, {1, 159}, {160, 320}}) {
      VOICE_FilterPreemph(values.data() + at, &memory, found.data() + at, count, coef);
      VOICE_FilterPreemph16(signal.data() + at, &memory16, from_samples.data() + at, count, coef);
    }
    EXPECT_EQ(found, expected) << coef;
    EXPECT_EQ(from_samples, expected) << coef;
    EXPECT_EQ(memory, values.back());
    auto in_place = values;
    memory = 0;
    VOICE_FilterPreemph(in_place.data(), &memory, in_place.data(), int32_t(in_place.size()), coef);
    EXPECT_EQ(in_place, expected) << coef;
  }
}

// Zeros at DC, poles of radius sqrt(den2) close to it: y = r (x - 2x' + x'') + 2r y' - den2 y''.
TEST(DcNotch, follows_its_difference_equation_on_one_of_two_channels) {
  const auto stereo = noise_samples(2, 960, 32767);
  const double r = double(0.98f), den2 = r * r + 0.7 * (1 - r) * (1 - r);
  std::vector<double> expected(stereo.size() / 2);
  const auto x = [&](int64_t i) { return i < 0 ? 0.0 : double(stereo[size_t(2 * i + 1)]); };
  const auto y = [&](int64_t i) { return i < 0 ? 0.0 : expected[size_t(i)]; };
  for (int64_t i = 0; i < int64_t(expected.size()); ++i)
    expected[size_t(i)] = r * (x(i) - 2 * x(i - 1) + x(i - 2)) + 2 * r * y(i - 1) - den2 * y(i - 2);
  std::vector<float> found(expected.size());
  float memory[2] = {};
  VOICE_FilterDcNotch16(stereo.data() + 1, found.data(), 160, memory, 2, 0.98f);
  VOICE_FilterDcNotch16(stereo.data() + 321, found.data() + 160, 320, memory, 2, 0.98f);
  EXPECT_LT(relative_error(expected, found), 1e-5);
}

TEST(DcNotch, removes_a_constant) {
  const Samples constant(4000, 20000);
  std::vector<float> out(constant.size());
  float memory[2] = {};
  VOICE_FilterDcNotch16(constant.data(), out.data(), 4000, memory, 1, 0.9f);
  EXPECT_NEAR(out.front(), 18000, 1);
  EXPECT_NEAR(out.back(), 0, 0.1);
}

} // namespace
