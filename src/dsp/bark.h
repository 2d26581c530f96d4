/// @file bark.h  The frequency scale of the band filter bank.
#pragma once

#include <cmath>

namespace qv {

/// Bark value of a frequency in Hz (the warping known from perceptual speech coders).
inline float bark(float hz) {
  const double low = 13.1f * std::atan(double(0.00074f * hz));
  const double high = 2.24f * std::atan(double(hz * hz * 1.85e-8f));
  return float(low + high + double(0.0001f * hz));
}

} // namespace qv
