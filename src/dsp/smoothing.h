/// @file smoothing.h  Averages over time and across bands, and the analysis window.
#pragma once

#include <cmath>
#include <cstdint>
#include <numbers>

#include "dsp/fma.h"

namespace qv {

/// keep * old + weight * input: one step of a recursive average.
inline float recursive_average(float old, float keep, float input, float weight) { return keep * old + weight * input; }

/// The same with the weight 1 - keep, in double precision, fused.
inline float recursive_average_fused(double old, double keep, double input) {
  return float(fma(keep, old, (1.0 - keep) * input));
}

/// Three-point smoothing across bands, symmetric; the two edge bands are copied. Evaluated in `Real`:
/// the centre's product first, then the lower and the upper neighbour, fused.
/// @param in,out  [count], count >= 2, not overlapping
template <class Real> void smooth_across_bands(const float *in, float *out, int32_t count, Real centre, Real side) {
  out[0] = in[0];
  out[count - 1] = in[count - 1];
  for (int32_t k = 1; k < count - 1; ++k)
    out[k] = float(fma(side, Real(in[k + 1]), fma(side, Real(in[k - 1]), centre * Real(in[k]))));
}

/// Five-point smoothing 0.1, 0.2, 0.4, 0.2, 0.1 around in[0].
inline float five_point_mean(const float *in) {
  return 0.1f * in[-2] + 0.2f * in[-1] + 0.4f * in[0] + 0.2f * in[1] + 0.1f * in[2];
}

/// Periodic Hann window: window[i] + window[i + length/2] = 1, so half-overlapping frames add up to
/// their signal.
inline void hann_window(float *window, int32_t length) {
  for (int32_t i = 0; i < length; ++i)
    window[i] = float(0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * i / length));
}

} // namespace qv
