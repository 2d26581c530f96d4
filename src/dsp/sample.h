/// @file sample.h  From a computed value to a 16-bit sample.
#pragma once

#include <cstdint>

namespace qv {

/// Rounds half up; values beyond -32767.5 and 32766.5 take the end of the range; an undefined value
/// becomes 0.
inline int16_t to_sample(float x) {
  const bool in_range = x >= -32767.5f && x <= 32766.5f;
  const double shifted = in_range ? double(x) + 0.5 : 0.0;
  int32_t rounded = int32_t(shifted);
  rounded -= rounded > shifted; // the conversion goes towards zero, the rounding down
  if (x < -32767.5f)
    rounded = -32768;
  if (x > 32766.5f)
    rounded = 32767;
  return int16_t(rounded);
}

} // namespace qv
