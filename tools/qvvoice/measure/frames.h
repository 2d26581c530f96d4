/// @file frames.h  What the single measures are computed from.
#pragma once

#include "measure/background.h"
#include "measure/results.h"

namespace qv::tool::measure {

/// A recording and an output of it, cut into frames of 10 ms.
struct Frames : Known {
  const Output &output;
  std::vector<double> out, sent;        ///< powers; `out` without AGC gain
  std::optional<double> out_noise;      ///< of `out`
  std::vector<BandPowers> out_bands;    ///< of the frames of the background and of the far end alone
  std::optional<Background> background; ///< of the output; none in a call without noise; nothing when not known

  Frames(const Known &known, const Output &output);

  /// Mean power while nobody talks, from 0.5 s on: before that the noise reducer has not seen the noise. Nothing when
  /// somebody always talks, or it is not known. @param powers  one of the above
  std::optional<double> noise_power(const std::vector<double> &powers) const;
};

/// Each fills its part of the results.
void measure_echo(const Frames &frames, Results &results);
void measure_changes(const Frames &frames, Results &results); ///< of path, delay and streams
void measure_delay(const Frames &frames, Results &results);
void measure_near(const Frames &frames, Results &results);
void measure_levels(const Frames &frames, Results &results); ///< noise, levels and speed

} // namespace qv::tool::measure
