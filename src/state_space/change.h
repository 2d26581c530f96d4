/// @file change.h  Has the echo path changed? Told from a talker by what only an echo has: a lag at which it correlates
/// with the reference, and the shape that the echo's estimate has over bands and time.
#pragma once

#include "state_space/arrival.h"
#include "state_space/bands.h"

namespace qv::state_space {

struct ChangeDetector {
  int32_t frames = 0;                                            ///< in which the shapes were compared
  float error_mean[most_bands] = {}, echo_mean[most_bands] = {}; ///< long-term log10 powers
  float cross = 0, error_square = 0, echo_square = 0;            ///< of what differs from them, over the last frames
  float persistence = 0;                                         ///< frames, lately, in which one lag stood out
  int32_t last_lag = 0;
  int32_t suspicion = 0; ///< frames in which what stands out looked like echo, less those in which it did not
  int32_t waiting = 0;   ///< frames until the next change can be declared
  int32_t wait = 0;

  float likeness = 0;   ///< -1..1, correlation of the two shapes
  float score = 0;      ///< 1 and above: what is left is echo
  bool changed = false; ///< declared in this frame
};

struct ChangeInput {
  const float *error, *echo; ///< [bands] mean powers per bin of error and echo estimate
  bool far_heard;            ///< the reference can be heard
  bool echo_heard;           ///< so can the echo's estimate
  bool stands_out;           ///< the error exceeds what is expected in several bands
};

void detect(const Bands &bands, const ChangeInput &in, const Arrival &arrival, ChangeDetector &d);

} // namespace qv::state_space
