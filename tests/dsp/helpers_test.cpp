// Memory, scalar functions and reductions.

#include "dsp/fma.h"
#include "qvvoice/dsp/math.h"
#include "qvvoice/dsp/memory.h"
#include "qvvoice/dsp/vector.h"
#include "qvvoice/post/agc.h"
#include "support.h"

namespace {

using namespace qv::test;

TEST(Memory, blocks_are_zero_and_a_negative_size_fails) {
  auto *block = static_cast<unsigned char *>(VOICE_Alloc(4096));
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(std::count(block, block + 4096, 0), 4096);
  EXPECT_EQ(VOICE_Memset(block, 0x1a5, 16), block);
  EXPECT_EQ(std::count(block, block + 4096, 0xa5), 16);
  EXPECT_EQ(VOICE_Memcpy(block + 100, block, 16), block + 100);
  EXPECT_EQ(std::count(block, block + 4096, 0xa5), 32);
  VOICE_Free(block);
  VOICE_Free(nullptr);
  EXPECT_EQ(VOICE_Alloc(-1), nullptr);
}

TEST(Math, integer_logarithms_are_floors) {
  EXPECT_EQ(VOICE_Ilog2(0), 0u);
  EXPECT_EQ(VOICE_Ilog4(0), 0u);
  for (uint32_t bit = 0; bit < 32; ++bit) {
    const uint32_t power = 1u << bit, below_next = power + (power - 1);
    EXPECT_EQ(VOICE_Ilog2(power), bit);
    EXPECT_EQ(VOICE_Ilog2(below_next), bit);
    EXPECT_EQ(VOICE_Ilog4(power), bit / 2);
    EXPECT_EQ(VOICE_Ilog4(below_next), bit / 2);
  }
}

TEST(Math, cosine_is_within_its_bound_and_odd_about_a_quarter_turn) {
  EXPECT_EQ(VOICE_Cos(0.f), 0.9999933f);
  EXPECT_EQ(VOICE_Cos(3.14159265f), -0.9999933f);
  double worst = 0;
  for (int i = 0; i <= 3141; ++i)
    worst = std::fmax(worst, std::fabs(double(VOICE_Cos(float(i) / 1000.f)) - std::cos(double(float(i) / 1000.f))));
  EXPECT_LT(worst, 1e-5);
  EXPECT_GT(worst, 1e-6); // a polynomial of four terms, not the C library
}

TEST(Math, curves_and_decibels_meet_their_hand_numbers) {
  EXPECT_EQ(VOICE_Qcurve(0.f), 0.f);
  EXPECT_FLOAT_EQ(VOICE_Qcurve(0.15f), 0.5f);
  EXPECT_FLOAT_EQ(VOICE_Qcurve(1.35f), 0.9f);
  for (const auto &[db, gain] : std::initializer_list<std::pair<float, float>>{
           {0.f, 1.f}, {20.f, 10.f}, {-40.f, 0.01f}, {6.0205999f, 2.f}, {-3.0103f, 0.70710678f}}) {
    EXPECT_FLOAT_EQ(VOICE_DeltaDb2Gain(db), gain);
    EXPECT_EQ(AGC_DeltaDb2Gain(db), VOICE_DeltaDb2Gain(db));
  }
}

// Uniform over 3.4642 amplitudes: the mean, the variance 1 and the fourth moment 9/5 of that density, each within five
// standard errors.
TEST(Math, noise_has_the_moments_of_its_density) {
  uint32_t seed = 0;
  VOICE_Rand(&seed, 1.f);
  EXPECT_EQ(seed, 1013904223u);
  constexpr int count = 1'000'000;
  double mean = 0, square = 0, fourth = 0, largest = 0;
  for (int i = 0; i < count; ++i) {
    const double x = double(VOICE_Rand(&seed, 2.f)) / 2;
    mean += x / count;
    square += x * x / count;
    fourth += x * x * x * x / count;
    largest = std::fmax(largest, std::fabs(x));
  }
  EXPECT_NEAR(mean, 0, 0.005);
  EXPECT_NEAR(square, 1, 0.005);
  EXPECT_NEAR(fourth, 1.8, 0.01);
  EXPECT_GT(largest, 1.7320);
  EXPECT_LE(largest, 1.7321);
}

// Sums are compared exactly with a loop that the compiler may not reorder: the order is part of the result.
TEST(Vector, reductions_keep_the_order_of_the_index) {
  for (const int32_t count : {0, 1, 2, 3, 7, 8, 31, 320, 641}) {
    const auto a = noise_values(uint32_t(count), size_t(count), 1e4f);
    const auto b = noise_values(uint32_t(count) + 9, size_t(count));
    const auto x = noise_samples(uint32_t(count), size_t(count), 32767), y = noise_samples(77, size_t(count), 32767);
    volatile float sum = 0, fused = 0.25f, sum16 = 0;
    for (size_t i = 0; i < a.size(); ++i) {
      sum = sum + a[i];
      fused = std::fma(a[i], b[i], float(fused));
      sum16 = sum16 + float(int32_t(x[i]) * y[i]);
    }
    EXPECT_EQ(VOICE_VecSum(a.data(), count), sum) << count;
    EXPECT_EQ(VOICE_VvMultAdd(a.data(), b.data(), count, 0.25f), fused) << count;
    EXPECT_EQ(VOICE_VvMultAdd16(x.data(), y.data(), count), sum16) << count;
    if (count == 0)
      continue;
    EXPECT_EQ(VOICE_VecMean(a.data(), 0, count - 1), sum / float(count)) << count;
    EXPECT_EQ(VOICE_VecMean(a.data(), count - 1, count - 1), a.back()) << count;
    EXPECT_EQ(VOICE_VecMax(a.data(), count), *std::max_element(a.begin(), a.end())) << count;
    const auto magnitude = [](int16_t l, int16_t r) { return std::abs(l) < std::abs(r); };
    EXPECT_EQ(VOICE_VecAbsMax(x.data(), count), std::abs(*std::max_element(x.begin(), x.end(), magnitude))) << count;
  }
}

TEST(Vector, extremes_of_16_bits_do_not_overflow) {
  const int16_t rails[] = {-32768, -32768, 32767};
  EXPECT_EQ(VOICE_VecAbsMax(rails, 3), 32768.f);
  EXPECT_EQ(VOICE_VvMultAdd16(rails, rails, 2), 2147483648.f);
  EXPECT_EQ(VOICE_VvMultAdd16(rails, rails, -1), 0.f);
  EXPECT_EQ(VOICE_VecSum(nullptr, -1), 0.f);
}

} // namespace
