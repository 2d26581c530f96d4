/// @file canceller.h  The state-space echo canceller: in place of the one in aec/, around the noise reducer.
///
/// A frame has two halves. cancel() takes the echo's estimate off the microphone; the noise reducer hears what is left,
/// so that no gain of its own stands between loudspeaker and filter; suppress() takes off what is left of the echo and
/// applies the noise reducer's gain. The output is a frame late.
#pragma once

#include "state_space/drift.h"
#include "state_space/frame_report.h"
#include "state_space/suppressor.h"

namespace qv::state_space {

struct Canceller {
  int32_t n = 0;
  int32_t most_delay = 0;
  float energy_keep = 0;
  float mic_energy = 0;     ///< averaged as the filters' errors
  int32_t far_frames = 0;   ///< in a row in which the reference says something
  float offset = 0;         ///< the microphone's direct current, sample units
  float offset_weight = 0;  ///< of a sample in it
  bool muted = false;       ///< the microphone's frame was digital silence
  BatchTransform transform; ///< of 2N points
  BatchTransform to_lags;
  Reference reference;
  Filter steady; ///< whose estimate counts
  Filter quick;  ///< trusts the error more; where it leaves less, the steady one follows
  Arrival arrival;
  Drift drift;
  Suppressor suppressor;
  FrameReport report;
};

/// Takes all memory. @param noise_reduced  whether a noise reducer follows  @param seed  of what fills, any value
/// @return whether memory was there; what could be had is in `c` either way, for destroy()
bool init(int32_t rate, int32_t frame_len, const Tuning &tuning, bool noise_reduced, uint32_t seed, Canceller &c);
void destroy(Canceller &c);

/// Takes over tuning between two frames; the length of the tail stays, and what was learnt.
void retune(const Tuning &tuning, Canceller &c);

/// @param mic,ref  [N]  @param error  [N] the microphone without the echo's estimate; may be `mic`
void cancel(const int16_t *mic, const int16_t *ref, int16_t *error, Canceller &c);

/// @param noise_gain  [N] per bin  @param out  [N]
void suppress(const float *noise_gain, int16_t *out, Canceller &c);

} // namespace qv::state_space
