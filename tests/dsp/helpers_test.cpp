// What the signal path uses in part only: scalar functions, reductions, filters over time.

#include <array>
#include <utility>

#include "qvvoice/dsp/filter.h"
#include "qvvoice/dsp/math.h"
#include "qvvoice/dsp/vector.h"
#include "support.h"

namespace {

using namespace qv::test;

TEST(Math, functions_meet_their_definitions) {
  EXPECT_EQ(VOICE_Ilog2(0) + VOICE_Ilog4(0), 0u);
  for (uint32_t bit = 0; bit < 32; ++bit)
    for (const uint32_t x : {1u << bit, (2u << bit) - 1}) {
      EXPECT_EQ(VOICE_Ilog2(x), bit);
      EXPECT_EQ(VOICE_Ilog4(x), bit / 2);
    }
  for (float x = 0; x <= 3.1415f; x += 0.001f)
    EXPECT_NEAR(VOICE_Cos(x), std::cos(double(x)), 1e-5);
  for (const float db : {0.f, 20.f, -40.f, 6.0205999f, -3.0103f})
    EXPECT_FLOAT_EQ(VOICE_DeltaDb2Gain(db), std::pow(10.f, db / 20));
}

// From the seed 0 the generator of "Numerical Recipes" goes through these states; uniform, of standard deviation 1.
TEST(Math, random_numbers_are_those_of_the_generator) {
  uint32_t seed = 0;
  for (const uint32_t state : {1013904223u, 1196435762u, 3519870697u, 2868466484u}) {
    const double uniform = (state & 0x7fffff) / 8388608.0 - 0.5;
    EXPECT_NEAR(VOICE_Rand(&seed, 1.f), uniform * 3.4642, 1e-6);
    EXPECT_EQ(seed, state);
  }
}

TEST(Vector, reductions_keep_their_order_and_take_extremes) {
  for (const int32_t count : {0, 1, 2, 3, 7, 8, 31, 320, 641}) {
    const auto a = noise_values(uint32_t(count), size_t(count), 1e4f), b = noise_values(9, size_t(count) + 1);
    float fused = 0.25f;
    for (size_t i = 0; i < a.size(); ++i)
      fused = std::fma(a[i], b[i], fused);
    EXPECT_EQ(VOICE_VvMultAdd(a.data(), b.data(), count, 0.25f), fused) << count;
    EXPECT_EQ(VOICE_VecMax(b.data(), count + 1), *std::max_element(b.begin(), b.end())) << count;
  }
  const int16_t rails[] = {32767, -32768, -32768};
  EXPECT_EQ(VOICE_VecAbsMax(rails, 3), 32768.f);
  EXPECT_EQ(VOICE_VecAbsMax(rails, 1), 32767.f);
  EXPECT_EQ(VOICE_VvMultAdd16(rails + 1, rails + 1, 2), 2147483648.f);
  EXPECT_EQ(VOICE_VvMultAdd16(rails, rails, -1), 0.f);
  EXPECT_EQ(VOICE_VecSum(nullptr, -1), 0.f);
  EXPECT_EQ(VOICE_VecMean(std::array{9.f, 1.f, 2.f, 6.f, 9.f}.data(), 1, 3), 3.f);
}

TEST(Filter, preemphasis_of_values_is_that_of_samples_across_frames) {
  const auto signal = noise_samples(1, 480, 32767);
  std::vector<float> values(signal.begin(), signal.end()), expected(signal.size());
  float memory = 0, memory16 = 0;
  for (const auto &[at, count] : {std::pair{0, 1}, {1, 159}, {160, 320}, {0, 0}}) {
    VOICE_FilterPreemph16(&signal[size_t(at)], &memory16, &expected[size_t(at)], count, 0.9f);
    VOICE_FilterPreemph(&values[size_t(at)], &memory, &values[size_t(at)], count, 0.9f);
  }
  EXPECT_NEAR(expected[479], signal[479] - 0.9 * signal[478], 0.01);
  EXPECT_EQ(values, expected);
  EXPECT_EQ(memory, memory16);
}

// Zeros at DC, poles of radius sqrt(den2) close to it: y = r (x - 2x' + x'') + 2r y' - den2 y''. On one of two
// channels, in two blocks.
TEST(Filter, dc_notch_follows_its_difference_equation) {
  const auto stereo = noise_samples(2, 960, 32767);
  const double r = double(0.98f), den2 = r * r + 0.7 * (1 - r) * (1 - r);
  std::vector<double> expected;
  double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
  for (size_t i = 1; i < stereo.size(); i += 2) {
    expected.push_back(r * (stereo[i] - 2 * x1 + x2) + 2 * r * y1 - den2 * y2);
    x2 = std::exchange(x1, stereo[i]);
    y2 = std::exchange(y1, expected.back());
  }
  std::vector<float> found(expected.size());
  float memory[2] = {};
  VOICE_FilterDcNotch16(&stereo[1], found.data(), 160, memory, 2, 0.98f);
  VOICE_FilterDcNotch16(&stereo[321], &found[160], 320, memory, 2, 0.98f);
  EXPECT_LT(relative_error(expected, found), 1e-5);
}

} // namespace
