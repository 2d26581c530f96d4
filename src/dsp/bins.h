/// @file bins.h  Per-bin work on packed spectra, and checks of whole arrays.
#pragma once

#include <bit>
#include <cstdint>

namespace qv {

/// Multiplies a packed spectrum of 2 * bins points by a real gain per bin.
/// @param gain  [bins + 1]
inline void apply_bin_gains(float *spectrum, const float *gain, int32_t bins) {
  spectrum[0] *= gain[0];
  for (int32_t k = 1; k < bins; ++k) {
    spectrum[2 * k - 1] *= gain[k];
    spectrum[2 * k] *= gain[k];
  }
  spectrum[2 * bins - 1] *= gain[bins];
}

/// Whether no value is infinite or undefined: none has all exponent bits set.
inline bool all_finite(const float *values, int32_t count) {
  int32_t largest = 0;
  for (int32_t i = 0; i < count; ++i) {
    const int32_t magnitude = std::bit_cast<int32_t>(values[i]) & 0x7fffffff;
    largest = magnitude > largest ? magnitude : largest;
  }
  return largest < 0x7f800000;
}

} // namespace qv
