/// @file gain_shape.h  The last shaping of both suppressors' gains.
#pragma once

#include <cmath>
#include <cstdint>

namespace qv::aec {

/// Raises gains to a power. The powers 1 and 2 of a float are exact in double precision, so they need
/// no pow().
inline void raise(float *gain, int32_t count, float exponent) {
  if (exponent == 1.f)
    return;
  if (exponent == 2.f)
    for (int32_t i = 0; i < count; ++i)
      gain[i] *= gain[i];
  else
    for (int32_t i = 0; i < count; ++i)
      gain[i] = float(std::pow(double(gain[i]), double(exponent)));
}

/// Divides the odds g / (1 - g) of each gain by its divisor. A gain that a wild exponent or divisor
/// leaves infinite or undefined becomes 0.
inline void divide_odds(float *gain, const float *divisor, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    const float g = gain[i];
    const float shaped = g / (divisor[i] * (1.f - g) + g + 0.0001f);
    gain[i] = std::fabs(shaped) <= 3.4028235e38f ? shaped : 0.f;
  }
}

} // namespace qv::aec
