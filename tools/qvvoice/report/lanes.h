/// @file lanes.h  What happened over time, as the page's charts take it.
#pragma once

#include <algorithm>
#include <optional>

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

/// Charts of numbers: [{title, unit, step, series: [{label, values, other, points}]}], one value per frame of the
/// library, null where there is none. In a long call a value stands for several frames: their mean, in a chart of steps
/// the last.
/// @param other   run beside it; its series are marked and follow those of `run`
/// @param delays  of the echo, found in the recording
Json lanes(const measure::Subject &subject, const RunView &run, const std::optional<RunView> &other,
           const std::vector<DelayPoint> &delays);

/// States over time: {title, rows: [{label, states: [{label, colour}], runs: [[begin, end, state]]}]}, in s.
Json strips(const measure::Subject &subject, const RunView &run, const std::optional<RunView> &other);

} // namespace qv::tool::report
