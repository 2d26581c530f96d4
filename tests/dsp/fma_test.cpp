// The emulated fused multiply-add against the C library's, bit for bit.

#include "dsp/fma.h"

#include <cstring>

#include "dsp/denormals.h"
#include "support.h"

namespace {

using namespace qv;

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
    const Real nearly = 1 + std::ldexp(Real(1), -int(random_() % 60));
    const Arguments<Real> kinds[] = {{a, b, factor()}, {a, b, -product}, {a, b, -product * nearly}, near_half_way()};
    return kinds[random_() % 4];
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

/// Compares with a fused operation and returns the share of subnormal results.
template <class Real, class Fused> double compare(Source<Real> source, Fused fused) {
  const auto differs = [](Real x, Real y) { return std::memcmp(&x, &y, sizeof x) != 0; };
  int64_t different = 0, subnormal = 0;
  for (int64_t i = 0; i < rounds; ++i) {
    const auto [a, b, c] = source.next();
    const Real expected = fused(a, b, c);
    different += differs(expected, emulated::fma(a, b, c));
    if constexpr (std::is_same_v<Real, float>)
      different += differs(expected, emulated::accumulate(a, b, c));
    subnormal += std::fpclassify(expected) == FP_SUBNORMAL;
  }
  EXPECT_EQ(different, 0);
  return double(subnormal) / rounds;
}

TEST(Fma, emulation_rounds_once) {
  const auto fused = [](auto a, auto b, auto c) { return std::fma(a, b, c); };
  compare(Source<float>(1, -40, 40), fused);
  EXPECT_GT(compare(Source<float>(2, -78, -58), fused), 0.1);
  compare(Source<double>(3, -100, 100), fused);
  compare(Source<double>(4, -3, 3), fused);
}

#if defined(__x86_64__)
__attribute__((target("fma"))) float fused_by_the_processor(float a, float b, float c) {
  return __builtin_fmaf(a, b, c);
}

// Inside the transmit path denormals are flushed: the instruction and its emulation must then flush the same.
TEST(Fma, emulation_flushes_denormals_like_the_instruction) {
  if (!__builtin_cpu_supports("fma"))
    GTEST_SKIP() << "this processor has no fused multiply-add";
  const FlushDenormals scope;
  EXPECT_EQ(compare(Source<float>(6, -78, -58), fused_by_the_processor), 0);
}
#endif

TEST(Fma, emulation_keeps_infinities_and_undefined_values) {
  constexpr float inf = INFINITY, largest = 3e38f;
  for (const auto &[a, b, c] : std::initializer_list<Arguments<float>>{
           {inf, 1, 1}, {2, 1, -inf}, {largest, 10, 0}, {largest, 10, -inf}, {inf, 1, -inf}, {0, inf, 1}})
    for (const float found : {emulated::fma(a, b, c), emulated::accumulate(a, b, c)}) {
      const float expected = std::fma(a, b, c);
      EXPECT_TRUE(std::isnan(expected) ? std::isnan(found) : found == expected) << a << " * " << b << " + " << c;
    }
  EXPECT_TRUE(std::isnan(emulated::fma(double(inf), 1.0, -double(inf))));
}

} // namespace
