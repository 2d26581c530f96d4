/// @file background.h  The room's background in the microphone, and how loud it is sent.
///
/// Tracked by the probability that a frame holds more than the background (Gerkmann and Hendriks, "Unbiased MMSE-based
/// noise power estimation with low complexity and low tracking delay", IEEE TASLP 20(4), 2012), per band and only where
/// no echo is expected; a background that has risen is found by the steadiness of its minima.
#pragma once

#include "state_space/bands.h"

namespace qv::state_space {

struct Background {
  Bands bands;
  int32_t frames = 0; ///< since the start
  int32_t window = 0; ///< frames over which minima are taken
  float floor = 0;    ///< least power: rounding's own
  float keep = 0;
  float power[most_bands] = {};                            ///< mean per bin, of the suppressor's spectra
  float presence[most_bands] = {};                         ///< smoothed probability of something else
  float recent[most_bands] = {};                           ///< power over the last frames
  float smooth[most_bands] = {};                           ///< the same of frames in which no echo is heard
  float low[most_bands] = {}, low_before[most_bands] = {}; ///< minima of `smooth`: this window's, the last one's
  float sum[most_bands] = {};                              ///< of `smooth` over this window
  int32_t seen[most_bands] = {};                           ///< frames in it
  float sent[most_bands] = {};                             ///< power gain at which the background is sent in pauses
  uint32_t random = 0;                                     ///< state of the generator of what fills
};

/// @param noise_reduced  whether a noise reducer follows: the background is then sent so much weaker, until it is heard
void start(const Shape &shape, bool noise_reduced, uint32_t seed, Background &bg);

/// @param error,echo  [bands] mean powers per bin: what the microphone has beside the estimated echo; echo expected in
/// it
void track(const float *error, const float *echo, Background &bg);

/// Nobody talks: learns at what level the background is sent.
/// @param sent  [bands] mean power per bin after noise reduction  @param error  [bands] before it
void learn_pause(const float *sent, Background &bg);

/// Adds the background's likeness to a spectrum that was muted.
/// @param share  amplitude, 1: as in pauses
void fill(float share, const SplitSpectrum &spectrum, Background &bg);

} // namespace qv::state_space
