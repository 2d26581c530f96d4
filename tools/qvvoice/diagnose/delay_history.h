/// @file delay_history.h  The delay of an echo over a recording.
#pragma once

#include <optional>
#include <vector>

#include "signal/correlation.h"

namespace qv::tool::diagnose {

/// Runs of points without a jump between neighbours.
std::vector<std::vector<DelayPoint>> pieces_of(const std::vector<DelayPoint> &points);

/// The delay of the echo over the recording, less windows that disagree with both neighbours.
struct DelayHistory {
  struct Jump {
    double time;     ///< s
    double from, to; ///< s
  };
  std::vector<DelayPoint> points;
  std::vector<Jump> jumps;              ///< more than 2 ms at once
  double low = 0, median = 0, high = 0; ///< s: 10th, 50th and 90th percentile; of no meaning without points
  std::optional<double> drift_ppm;      ///< slope between the jumps; nothing from less than 10 s in one piece
};

DelayHistory delay_history(const std::vector<DelayPoint> &points);

} // namespace qv::tool::diagnose
