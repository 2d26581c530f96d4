/// @file activity.h  When somebody talks, and how loud the talking is.
#pragma once

#include <optional>
#include <vector>

#include "signal/signal.h"

namespace qv::tool {

inline constexpr double frame_seconds = 0.010; ///< grid on which talk is decided

constexpr size_t frame_length(int rate) { return size_t(rate) / 100; } ///< samples of that grid

/// Power of every whole frame of the grid.
std::vector<double> frame_powers(SignalView signal, int rate);
std::vector<double> frame_powers(SampleView samples, int rate);

/// Active speech level of ITU-T P.56, method B, in dBov: the level of the signal while it is active.
/// @return nothing for a signal without activity above 2^-15 of full scale
std::optional<double> active_level_db(SignalView signal, int rate);
std::optional<double> active_level_db(SampleView samples, int rate);

/// One flag per frame of the grid: its power is no more than the margin of P.56 (15.9 dB) below the active
/// speech level, or was so in the last 200 ms. For signals without noise.
std::vector<bool> activity(SignalView signal, int rate);
std::vector<bool> activity(SampleView samples, int rate);

struct Interval {
  double begin, end; ///< s
};

/// The runs of set flags.
std::vector<Interval> intervals(const std::vector<bool> &active);

/// Flags of `frames` frames; one is set when its middle lies in an interval. Intervals may overlap, in any order.
std::vector<bool> flags(const std::vector<Interval> &intervals, size_t frames);

} // namespace qv::tool
