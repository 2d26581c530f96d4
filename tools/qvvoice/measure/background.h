/// @file background.h  What an output has of the room's background, and what it has beyond it.
#pragma once

#include <optional>

#include "measure/talk.h"
#include "measure/third_octaves.h"
#include "measure/value.h"

namespace qv::tool::measure {

/// Power of the noise of rounding to 16 bits; an output of zeros counts as this.
inline constexpr double rounding_noise = 1.0 / 12 / 32768 / 32768;

/// A background of less power is hardly more than rounding, and nothing can be said of it.
inline constexpr double least_background = 10 * rounding_noise;

inline constexpr size_t quarter_frames = 25; ///< 10 ms frames of a quarter second

/// Frames of a recording in which its background can be heard by itself, or with the far end's echo alone. Where the
/// parts of the microphone's signal are known, what is left of the talk is 10 dB below the noise as well.
struct BackgroundFrames {
  std::vector<bool> quiet; ///< nobody is heard within 50 ms about the frame, from 0.5 s on
  std::vector<bool> far;   ///< the far end is heard, and nothing else within 50 ms about the frame
};

/// Powers of frames of the parts, as far as known.
struct Parts {
  std::optional<std::vector<double>> near, echo;
  std::optional<double> noise; ///< power throughout
};

BackgroundFrames background_frames(const std::vector<Talk> &talk, const Parts &parts);

/// The background of a signal.
struct Background {
  BandPowers level;  ///< [band]
  BandPowers spread; ///< [band] standard deviation of the power of a quarter second
  double total = 0, total_spread = 0;
};

/// @param bands  of its frames, at least the quiet ones
/// @return nothing for less than half a second of quiet frames
std::optional<Background> background_of(const std::vector<BandPowers> &bands, const std::vector<bool> &quiet, int rate);

/// Power of a piece of the signal beyond its background: what stands out of a third octave by more than three times
/// its spread, or out of the whole, whichever is more. It is never taken for less than the spread, up to which the
/// background's power is not known, unless the piece itself has less.
/// @param mean    of the bands over the piece
/// @param frames  of 10 ms of the piece
double residual_power(const Background &background, const BandPowers &mean, size_t frames);

/// Mean of the bands of the frames with a flag; nothing without one.
std::optional<BandPowers> mean_of(const std::vector<BandPowers> &bands, const std::vector<bool> &chosen, size_t begin,
                                  size_t end);

/// How the background changes while the far end talks, in dB.
struct BackgroundStep {
  Value level;  ///< of the whole
  Value median; ///< of the quarter second in the middle, by their level
  Value band;   ///< largest of any third octave from 300 Hz to 3 kHz (at 8000 Hz) or 6 kHz, without its sign
};

/// @return absent for less than half a second of either class or a background that is not 10 dB above rounding
BackgroundStep background_step(const std::vector<BandPowers> &bands, const BackgroundFrames &frames, int rate);

} // namespace qv::tool::measure
