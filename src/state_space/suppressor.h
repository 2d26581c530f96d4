/// @file suppressor.h  Takes out what the filter leaves of the echo, by what the filter itself expects to leave.
///
/// Residual echo is the filter's uncertainty and a learnt share of the echo's estimate (a loudspeaker distorts, a room
/// is longer than the filter); the gain per bin is Wiener's with the decision-directed a-priori ratio (Ephraim and
/// Malah, "Speech enhancement using a minimum mean-square error short-time spectral amplitude estimator", IEEE TASSP
/// 32, 1984). While only the far end talks the output is the room's background.
#pragma once

#include "state_space/background.h"
#include "state_space/change.h"
#include "state_space/talker.h"
#include "state_space/tuning.h"

namespace qv::state_space {

struct Suppressor {
  int32_t n = 0;
  Bands bands;
  // Designed once.
  float *window = nullptr;  ///< [2N] root of a Hann window, analysis and synthesis
  float caution = 0;        ///< factor on the residual echo: the talker's price
  float mute = 0;           ///< gain while only the far end talks
  float filling = 0;        ///< share of the background that takes its place
  int32_t tail_frames = 0;  ///< for which the echo sounds after the reference has ended
  int32_t compared_bin = 0; ///< from which an echo's loudness is judged
  float echo_decay = 0;     ///< power kept of an echo from frame to frame, reverberation at the least
  float mean_weight = 0;
  float loudest_decay = 0;

  // Moves with the frames.
  SplitSpectrum error{};                 ///< [N + 1] of the last two frames' error, windowed
  float *error_before = nullptr;         ///< [N]
  float *overlap = nullptr;              ///< [N] second half of the last synthesis
  float *echo_power = nullptr;           ///< [N + 1] of the echo's estimate, decaying
  float *residual = nullptr;             ///< [N + 1] expected power of what is left
  float *clean_ratio = nullptr;          ///< [N + 1] last frame's output over its residual
  static constexpr int32_t classes = 4;  ///< of loudness, 5 dB each: a loudspeaker distorts when it is loud
  float share[classes][most_bands] = {}; ///< of the echo's power that is left beside what the filter expects
  float left_mean[most_bands] = {}, echo_mean[most_bands] = {};
  float loudest = 1;      ///< echo's power lately
  float far_power = 0;    ///< mean square of the reference that the microphone hears now, decaying
  float far_now = 0;      ///< the same, gone after some frames: only then is what stands out the echo of something
  int32_t far_frames = 0; ///< until its echo has gone
  int32_t quiet = 0;      ///< frames for which nobody has talked, counted up to a pause
  Background background;
  TalkerTest talker;
  ChangeDetector change;

  // The frame's outcome.
  bool echo_heard = false;  ///< the echo's estimate is loud enough to be compared
  bool surely_echo = false; ///< the path has changed: whatever stands out is echo
  bool single_talk = false; ///< only the far end is heard
  float gain = 1;           ///< mean over the bins, before noise reduction
  float residual_power = 0; ///< mean square of the expected residual echo
};

bool init(const Shape &shape, bool noise_reduced, uint32_t seed, Suppressor &s);
void destroy(Suppressor &s);
void tune(const Tuning &tuning, Suppressor &s);

/// The error's last two frames, windowed. @param error  [N]  @param windowed  [2N] written
void window_error(const float *error, float *windowed, Suppressor &s);

struct EchoState {
  SplitSpectrum echo;       ///< estimate, of 2N unwindowed samples
  const float *uncertainty; ///< [N + 1] of the same
  float reference_power;    ///< mean square of the reference's frame, as late as its echo
  bool microphone_muted;    ///< digital silence: nothing can be learnt
};

/// One frame, a frame late. `s.error` holds the windowed error's spectrum, and is left as sent; afterwards
/// `s.change.changed` says whether the filters must be opened.
/// @param noise_gain  [N] of the noise reducer
/// @param out         [N] samples to be rounded
void suppress(const EchoState &state, const Arrival &arrival, const float *noise_gain, BatchTransform &transform,
              float *out, Suppressor &s);

} // namespace qv::state_space
