/// @file correlation.h  The delay of one signal behind another.
#pragma once

#include <optional>
#include <vector>

#include "signal/signal.h"
#include "support/progress_fn.h"

namespace qv::tool {

/// Delay found in one window of a recording.
struct DelayPoint {
  double time;     ///< s, middle of the window
  double delay;    ///< s by which the signal lags the reference; negative when it leads
  double strength; ///< height of the peak over the rms of the correlation in the search range
};

struct DelaySearch {
  double window = 4.0;    ///< s
  double hop = 1.0;       ///< s; in recordings of more than ten minutes the windows do not overlap
  double earliest = -0.5; ///< s
  double latest = 1.0;    ///< s
  /// Unrelated speech stays below 6 (the largest of 24000 Gaussian values lies at 4.3), one echo path that
  /// carries most of the power above 15.
  double least_strength = 8.0;
};

/// Cross-correlation with phase transform (Knapp and Carter 1976), window by window. Windows without a clear
/// peak give no point.
/// @param progress  called with windows
std::vector<DelayPoint> delay_points(SignalView signal, SignalView reference, int rate, const DelaySearch &search = {},
                                     const ProgressFn &progress = {});
std::vector<DelayPoint> delay_points(SampleView signal, SampleView reference, int rate, const DelaySearch &search = {},
                                     const ProgressFn &progress = {});

struct DelaySummary {
  double delay;     ///< s, median
  double spread;    ///< s, between the 10th and the 90th percentile
  double drift_ppm; ///< median slope between pairs of points (Theil 1950, Sen 1968); above 0 the delay grows
};

/// @return nothing for fewer than two points
std::optional<DelaySummary> summarise(const std::vector<DelayPoint> &points);

} // namespace qv::tool
