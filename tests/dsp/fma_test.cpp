// The emulated fused multiply-add against the C library's, bit for bit.

#include "dsp/fma.h"

#include <cstring>

#include "dsp/denormals.h"
#include "support.h"

namespace {

using namespace qv::test;

constexpr int64_t rounds = 1'000'000;

template <class Real> struct Arguments { Real a, b, c; };

/// Factors of any magnitude; the addend is unrelated, or cancels the product to within some bits, or is half a unit
/// of the last place away from it, where a second rounding goes wrong.
template <class Real> class Source {
public:
  Source(uint32_t seed, int least_exponent, int greatest_exponent)
      : random_(seed), exponent_(least_exponent, greatest_exponent) {}

  Arguments<Real> next() {
    const Real a = factor(), b = factor(), product = a * b;
    switch (random_() % 4) {
    case 0:
      return {a, b, factor()};
    case 1:
      return {a, b, -product};
    case 2:
      return {a, b, -product * (1 + std::ldexp(Real(1), -int(random_() % 60)))};
    default:
      return near_half_way();
    }
  }

private:
  Real sign() { return random_() & 1 ? Real(1) : Real(-1); }
  Real factor() { return sign() * std::ldexp(1 + mantissa_(random_), exponent_(random_)); }

  /// An addend of any last bit, and half a unit of it less a trifle: (1 + t)(1 - t) = 1 - t^2.
  Arguments<Real> near_half_way() {
    constexpr int digits = std::numeric_limits<Real>::digits;
    const Real t = std::ldexp(Real(1 + random_() % 3), -2 - int(random_() % (digits - 2)));
    const Real addend = 1 + std::ldexp(Real(random_() % 8), 1 - digits);
    return {sign() * (1 + t), std::ldexp(1 - t, -digits), sign() * addend};
  }

  std::mt19937_64 random_;
  std::uniform_int_distribution<int> exponent_;
  std::uniform_real_distribution<Real> mantissa_;
};

template <class Real, class Fused> int64_t count_differences(Source<Real> source, Fused fused, int64_t &subnormal) {
  const auto differs = [](Real x, Real y) { return std::memcmp(&x, &y, sizeof x) != 0; };
  int64_t different = 0;
  for (int64_t i = 0; i < rounds; ++i) {
    const auto [a, b, c] = source.next();
    const Real expected = fused(a, b, c);
    different += differs(expected, qv::emulated::fma(a, b, c));
    if constexpr (std::is_same_v<Real, float>)
      different += differs(expected, qv::emulated::accumulate(a, b, c));
    subnormal += std::fpclassify(expected) == FP_SUBNORMAL;
  }
  return different;
}

TEST(Fma, emulation_rounds_once) {
  const auto fused = [](auto a, auto b, auto c) { return std::fma(a, b, c); };
  int64_t subnormal = 0;
  EXPECT_EQ(count_differences(Source<float>(1, -40, 40), fused, subnormal), 0);
  EXPECT_EQ(count_differences(Source<float>(2, -78, -58), fused, subnormal), 0);
  EXPECT_GT(subnormal, rounds / 10);
  EXPECT_EQ(count_differences(Source<double>(3, -100, 100), fused, subnormal), 0);
  EXPECT_EQ(count_differences(Source<double>(4, -3, 3), fused, subnormal), 0);
}

TEST(Fma, emulation_keeps_infinities_and_undefined_values) {
  constexpr float inf = INFINITY, largest = 3e38f;
  EXPECT_EQ(qv::emulated::fma(inf, 1.f, 1.f), inf);
  EXPECT_EQ(qv::emulated::fma(2.f, 1.f, -inf), -inf);
  EXPECT_EQ(qv::emulated::fma(largest, 10.f, 0.f), inf);
  EXPECT_EQ(qv::emulated::fma(largest, 10.f, -inf), -inf);
  EXPECT_TRUE(std::isnan(qv::emulated::fma(inf, 1.f, -inf)));
  EXPECT_TRUE(std::isnan(qv::emulated::fma(0.f, inf, 1.f)));
  EXPECT_EQ(qv::emulated::accumulate(inf, 1.f, 1.f), inf);
  EXPECT_TRUE(std::isnan(qv::emulated::accumulate(inf, 1.f, -inf)));
  EXPECT_TRUE(std::isnan(qv::emulated::fma(double(inf), 1.0, -double(inf))));
}

TEST(Fma, sample_times_word_rounds_once) {
  std::mt19937 random(5);
  float expected = 0, found = 0;
  int64_t different = 0;
  for (int64_t i = 0; i < rounds; ++i) {
    if (i % 257 == 0)
      expected = found = 0;
    const auto sample = float(int16_t(random())), coef = float(int16_t(random())) / 32768.f;
    expected = std::fma(sample, coef, expected);
    found = qv::fma_q15(sample, coef, found);
    different += !(expected == found);
  }
  EXPECT_EQ(different, 0);
}

#if defined(__x86_64__)
__attribute__((target("fma"))) float fused_by_the_processor(float a, float b, float c) {
  return __builtin_fmaf(a, b, c);
}

// Inside the transmit path denormals are flushed: the instruction and its emulation must then flush the same.
TEST(Fma, emulation_flushes_denormals_like_the_instruction) {
  if (!__builtin_cpu_supports("fma"))
    GTEST_SKIP() << "this processor has no fused multiply-add";
  const qv::FlushDenormals scope;
  int64_t subnormal = 0;
  EXPECT_EQ(count_differences(Source<float>(6, -78, -58), fused_by_the_processor, subnormal), 0);
  EXPECT_EQ(subnormal, 0);
}
#endif

} // namespace
