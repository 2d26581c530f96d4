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
  const auto hangover = std::ptrdiff_t(hangover_seconds * rate + 0.5);
  // The thresholds are nested: the highest that the envelope has passed within the hangover stands for those below.
  std::array<std::ptrdiff_t, threshold_count + 1> until{}; ///< sample up to which so many thresholds count as passed
  std::array<double, threshold_count + 1> samples{};       ///< in which exactly so many did
  size_t passed = 0;
  double smooth = 0, envelope = 0;
  for (size_t i = 0; i < signal.size(); ++i) {
    smooth = keep * smooth + (1 - keep) * std::abs(signal[i]);
    envelope = keep * envelope + (1 - keep) * smooth;
    const auto now = size_t(std::clamp(std::ilogb(envelope), -threshold_count - 1, -1) + threshold_count + 1);
    until[now] = std::ptrdiff_t(i) + hangover;
    passed = std::max(passed, now);
    while (passed > now && until[passed] < std::ptrdiff_t(i))
      --passed;
    ++samples[passed];
  }
  std::array<double, threshold_count> active;
  double above = 0;
  for (size_t j = threshold_count; j-- > 0;)
    active[j] = above += samples[j + 1];
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
