#include "signal/activity.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace qv::tool {
namespace {

// Constants of ITU-T P.56, method B.
constexpr double envelope_seconds = 0.03;
constexpr double hangover_seconds = 0.2;
constexpr double margin_db = 15.9;
constexpr int threshold_count = 15; ///< 2^-15 .. 2^-1 of full scale

/// Samples during which the envelope was above each threshold, hangover included.
std::array<double, threshold_count> active_samples(SignalView signal, int rate) {
  const double keep = std::exp(-1 / (rate * envelope_seconds));
  const int hangover = int(hangover_seconds * rate + 0.5);
  std::array<double, threshold_count> active{};
  std::array<int, threshold_count> silent;
  silent.fill(hangover);
  double smooth = 0, envelope = 0;
  for (const double value : signal) {
    smooth = keep * smooth + (1 - keep) * std::abs(value);
    envelope = keep * envelope + (1 - keep) * smooth;
    for (size_t j = 0; j < threshold_count; ++j) {
      silent[j] = envelope >= std::ldexp(1.0, int(j) - threshold_count) ? 0 : silent[j] + 1;
      active[j] += silent[j] <= hangover;
    }
  }
  return active;
}

} // namespace

std::vector<double> frame_powers(SignalView signal, int rate) {
  const size_t length = frame_length(rate);
  std::vector<double> powers(signal.size() / length);
  for (size_t i = 0; i < powers.size(); ++i)
    powers[i] = power(signal.subspan(i * length, length));
  return powers;
}

std::optional<double> active_level_db(SignalView signal, int rate) {
  const auto active = active_samples(signal, rate);
  const double total = energy(signal);
  double level_below = 0, excess_below = 0;
  for (size_t j = 0; j < threshold_count && active[j] > 0; ++j) {
    const double level = 10 * std::log10(total / active[j]);
    const double excess = level - 20 * std::log10(std::ldexp(1.0, int(j) - threshold_count));
    if (excess <= margin_db)
      return j == 0 ? level : std::lerp(level_below, level, (excess_below - margin_db) / (excess_below - excess));
    level_below = level;
    excess_below = excess;
  }
  return std::nullopt;
}

std::vector<bool> activity(SignalView signal, int rate) {
  const std::vector<double> powers = frame_powers(signal, rate);
  std::vector<bool> active(powers.size());
  const auto level = active_level_db(signal, rate);
  if (!level)
    return active;
  const double threshold = from_db(*level - margin_db);
  const int hangover = int(hangover_seconds / frame_seconds + 0.5);
  int silent = hangover;
  for (size_t i = 0; i < powers.size(); ++i) {
    silent = powers[i] >= threshold ? 0 : silent + 1;
    active[i] = silent <= hangover;
  }
  return active;
}

std::vector<Interval> intervals(const std::vector<bool> &active) {
  std::vector<Interval> found;
  for (size_t i = 0; i < active.size(); ++i) {
    if (active[i] && (i == 0 || !active[i - 1]))
      found.push_back({double(i) * frame_seconds, 0});
    if (active[i])
      found.back().end = double(i + 1) * frame_seconds;
  }
  return found;
}

std::vector<bool> flags(const std::vector<Interval> &intervals, size_t frames) {
  std::vector<bool> set(frames);
  for (size_t i = 0; i < frames; ++i) {
    const double middle = (double(i) + 0.5) * frame_seconds;
    set[i] = std::ranges::any_of(intervals, [&](const Interval &in) { return middle >= in.begin && middle < in.end; });
  }
  return set;
}

} // namespace qv::tool
