/// @file full_scale.h  From a full scale of 1.0 to 16 bits.
#pragma once

#include <cstddef>

#include "dsp/sample.h"

namespace qv::tool {

/// Rounds and saturates; counts what lies beyond full scale.
inline int16_t from_full_scale(double value, size_t &clipped) {
  clipped += value < -1.0 || value > 1.0;
  return to_sample(float(value * 32768.0));
}

} // namespace qv::tool
