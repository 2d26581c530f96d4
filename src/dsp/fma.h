/// @file fma.h  Fused multiply-add with the same bits on every processor.
///
/// With the instruction it is the instruction. Without it the product is formed exactly, the sum is
/// rounded to odd in double precision, and a second rounding then cannot go wrong (Boldo and
/// Melquiond, "Emulation of FMA and correctly rounded sums: proved algorithms using rounding to
/// odd", 2008). That is tens of times faster than the C library's own emulation.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <type_traits>

namespace qv {

namespace emulated {

struct TwoSum {
  double sum, error;
  TwoSum(double a, double b) : sum(a + b) {
    const double b_part = sum - a;
    error = (a - (sum - b_part)) + (b - b_part);
  }
};

/// a + b rounded to odd: an inexact sum is cut off towards zero, and its last bit set. Without branches, so that loops
/// over it are vectorised.
inline double add_to_odd(double a, double b) {
  const TwoSum exact(a, b);
  const auto sum = std::bit_cast<uint64_t>(exact.sum), error = std::bit_cast<uint64_t>(exact.error);
  const uint64_t rounded_up = (sum ^ error) >> 63; // away from zero: the error has the other sign
  const auto odd = std::bit_cast<double>((sum - rounded_up) | 1);
  return std::fabs(exact.error) > 0 ? odd : exact.sum; // false for the undefined error of an infinite sum
}

inline float fma(float a, float b, float c) { return float(add_to_odd(double(a) * double(b), double(c))); }

/// fma with a branch that is seldom taken: a second rounding can only go wrong half way between two floats, where the
/// last 28 bits of a double are zero.
inline float accumulate(float a, float b, float sum) {
  const double next = double(a) * double(b) + double(sum);
  const bool may_be_half_way = (std::bit_cast<uint64_t>(next) & 0xfffffff) == 0;
  return may_be_half_way ? fma(a, b, sum) : float(next);
}

/// For finite arguments whose product neither overflows nor goes below 2^-900.
inline double fma(double a, double b, double c) {
  const double product = a * b;
  if (!std::isfinite(product + c))
    return product + c;
  const auto high_part = [](double x) { // Veltkamp: the upper 26 bits
    const double t = 134217729.0 * x;
    return t - (t - x);
  };
  const double a_high = high_part(a), a_low = a - a_high;
  const double b_high = high_part(b), b_low = b - b_high;
  const double error = ((a_high * b_high - product) + a_high * b_low + a_low * b_high) + a_low * b_low;
  const TwoSum low(c, error);
  const TwoSum high(product, low.sum);
  return high.sum + add_to_odd(low.error, high.error);
}

} // namespace emulated

#if defined(__FMA__) || defined(__aarch64__)
inline constexpr bool has_fma = true;
#else
inline constexpr bool has_fma = false;
#endif

/// a * b + c, rounded once.
template <class Real> inline Real fma(Real a, Real b, Real c) {
  if constexpr (has_fma && std::is_same_v<Real, double>)
    return __builtin_fma(a, b, c); // std::fma of doubles is a call without optimisation
  else if constexpr (has_fma)
    return std::fma(a, b, c);
  else
    return emulated::fma(a, b, c);
}

/// The same for running sums, each of which waits for the one before: their loops are not vectorised.
inline float accumulate(float a, float b, float sum) {
  if constexpr (has_fma)
    return std::fma(a, b, sum);
  else
    return emulated::accumulate(a, b, sum);
}

/// acc + sample * coef, rounded once, for a coefficient that is a multiple of 2^-15 and |acc| < 2^38:
/// both terms are multiples of 2^-15 that a double adds exactly.
inline float fma_q15(float sample, float coef, float acc) {
  if constexpr (has_fma)
    return std::fma(sample, coef, acc);
  else
    return float(double(acc) + double(sample) * double(coef));
}

} // namespace qv
