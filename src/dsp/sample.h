/// @file sample.h  From computed values to 16-bit samples.
#pragma once

#include <algorithm>
#include <cstdint>

namespace qv {

namespace sample {

/// The values that round to a sample; an undefined one becomes 0.
inline float limit(float x) { return std::clamp(x == x ? x : 0.f, -32768.f, 32767.f); }

/// floor(x + 0.5) for a limited value. In single precision, the width of everything around it: the fraction
/// of x is exact wherever it is near one half.
inline int16_t round(float x) {
  int32_t rounded = int32_t(x);
  rounded -= float(rounded) > x; // the conversion goes towards zero, floor goes down
  rounded += x - float(rounded) >= 0.5f;
  return int16_t(rounded);
}

} // namespace sample

/// Rounds half up; values beyond -32767.5 and 32766.5 take the end of the range; an undefined value
/// becomes 0.
inline int16_t to_sample(float x) { return sample::round(sample::limit(x)); }

/// out[i] = to_sample(value(i)) for i below count. `value` may read what `out[i]` held. In two passes, which
/// the compiler runs at full width each; one pass it does not.
template <class Value> void to_samples(int16_t *out, int32_t count, Value value) {
  constexpr int32_t lanes = 32; // divides every frame length
  float limited[lanes];
  for (int32_t start = 0; start < count; start += lanes) {
    const int32_t width = std::min(lanes, count - start);
    for (int32_t i = 0; i < width; ++i)
      limited[i] = sample::limit(value(start + i));
    for (int32_t i = 0; i < width; ++i)
      out[start + i] = sample::round(limited[i]);
  }
}

} // namespace qv
