/// @file lanes.h  What happened over time, as the page's charts take it.
#pragma once

#include <algorithm>
#include <cmath>
#include <functional>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "measure/results.h"
#include "signal/correlation.h"

namespace qv::tool::report {

using Json = nlohmann::ordered_json;

/// One run of a call.
struct RunView {
  const measure::Output &output;
  const measure::Results &results;
};

inline constexpr size_t most_points = 6000; ///< per series; two minutes of 20 ms frames

/// Frames of the library that one value of a chart stands for.
constexpr size_t frames_per_point(size_t frames) { return (std::max<size_t>(frames, 1) - 1) / most_points + 1; }

/// Charts of numbers: [{title, unit, step, series: [{label, values, other, points}], band: {label, low, high}}], one
/// value per frame of the library, null where there is none; a band only where the chart has one. In a long call a
/// value stands for several frames: their mean, in a chart of steps the last. What only the state-space canceller knows
/// is drawn where a run used it.
/// @param other   run beside it; its series are marked and follow those of `run`
/// @param delays  of the echo, found in the recording
Json lanes(const measure::Subject &subject, const RunView &run, const std::optional<RunView> &other,
           const std::vector<DelayPoint> &delays);

/// Whether the call was run with the state-space canceller.
inline bool used_state_space(const RunView &run) {
  return std::ranges::any_of(run.output.trace, [](const QvVoiceTrace &frame) { return frame.state_space != 0; });
}

/// Calls `add(run, suffix of its labels, whether it is the other)` for each run.
inline void for_each_run(const RunView &run, const std::optional<RunView> &other,
                         const std::function<void(const RunView &, const std::string &, bool)> &add) {
  add(run, "", false);
  if (other)
    add(*other, ", other", true);
}

/// To hundredths; null for nothing.
inline Json rounded(std::optional<double> value) {
  return value && std::isfinite(*value) ? Json(std::round(100 * *value) / 100) : Json();
}

/// States over time: {title, rows: [{label, states: [{label, colour}], runs: [[begin, end, state]], marks}]}, in s;
/// marks are drawn wider than they are.
Json strips(const measure::Subject &subject, const RunView &run, const std::optional<RunView> &other);

} // namespace qv::tool::report
