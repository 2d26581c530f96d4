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

constexpr size_t piece = 4096; ///< samples that are converted at a time

/// Calls `visit` with all samples, piece by piece.
template <class View> void for_each_piece(View samples, const auto &visit) {
  for (size_t begin = 0; begin < samples.size(); begin += piece)
    visit(excerpt(samples, std::ptrdiff_t(begin), std::min(piece, samples.size() - begin)));
}

/// How long a signal is active, and its energy.
class ActivityMeter {
public:
  explicit ActivityMeter(int rate)
      : keep_(std::exp(-1 / (rate * envelope_seconds))), hangover_(std::ptrdiff_t(hangover_seconds * rate + 0.5)) {}

  void add(SignalView signal) {
    for (const double value : signal)
      add(value);
  }

  std::optional<double> level_db() const {
    double level_below = 0, excess_below = 0, active = 0;
    std::array<double, threshold_count> above; // samples with each threshold passed
    for (size_t j = threshold_count; j-- > 0;)
      above[j] = active += samples_[j + 1];
    for (size_t j = 0; j < threshold_count && above[j] > 0; ++j) {
      const double level = 10 * std::log10(energy_ / above[j]);
      const double excess = level - 20 * std::log10(std::ldexp(1.0, int(j) - threshold_count));
      if (excess <= margin_db)
        return j == 0 ? level : std::lerp(level_below, level, (excess_below - margin_db) / (excess_below - excess));
      level_below = level;
      excess_below = excess;
    }
    return std::nullopt;
  }

private:
  // The thresholds are nested: the highest that the envelope has passed within the hangover stands for those below.
  void add(double value) {
    energy_ += value * value;
    smooth_ = keep_ * smooth_ + (1 - keep_) * std::abs(value);
    envelope_ = keep_ * envelope_ + (1 - keep_) * smooth_;
    const auto now = size_t(std::clamp(std::ilogb(envelope_), -threshold_count - 1, -1) + threshold_count + 1);
    until_[now] = place_ + hangover_;
    passed_ = std::max(passed_, now);
    while (passed_ > now && until_[passed_] < place_)
      --passed_;
    ++samples_[passed_];
    ++place_;
  }

  double keep_;
  std::ptrdiff_t hangover_, place_ = 0;
  std::array<std::ptrdiff_t, threshold_count + 1> until_{}; ///< place up to which so many thresholds count as passed
  std::array<double, threshold_count + 1> samples_{};       ///< in which exactly so many did
  size_t passed_ = 0;
  double smooth_ = 0, envelope_ = 0, energy_ = 0;
};

template <class View> std::vector<double> powers_of(View samples, int rate) {
  const size_t length = frame_length(rate);
  std::vector<double> powers(samples.size() / length);
  for (size_t i = 0; i < powers.size(); ++i)
    powers[i] = power(excerpt(samples, std::ptrdiff_t(i * length), length));
  return powers;
}

template <class View> std::optional<double> level_of(View samples, int rate) {
  ActivityMeter meter(rate);
  for_each_piece(samples, [&](SignalView part) { meter.add(part); });
  return meter.level_db();
}

std::vector<bool> active_frames(const std::vector<double> &powers, std::optional<double> level) {
  std::vector<bool> active(powers.size());
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

} // namespace

std::vector<double> frame_powers(SignalView signal, int rate) { return powers_of(signal, rate); }
std::vector<double> frame_powers(SampleView samples, int rate) { return powers_of(samples, rate); }

std::optional<double> active_level_db(SignalView signal, int rate) { return level_of(signal, rate); }
std::optional<double> active_level_db(SampleView samples, int rate) { return level_of(samples, rate); }

std::vector<bool> activity(SignalView signal, int rate) {
  return active_frames(frame_powers(signal, rate), active_level_db(signal, rate));
}

std::vector<bool> activity(SampleView samples, int rate) {
  return active_frames(frame_powers(samples, rate), active_level_db(samples, rate));
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
  for (const Interval &in : intervals)
    for (auto i = size_t(std::clamp(in.begin / frame_seconds - 0.5, 0.0, double(frames))); i < frames; ++i) {
      const double middle = (double(i) + 0.5) * frame_seconds;
      if (middle >= in.end)
        break;
      set[i] = set[i] || middle >= in.begin;
    }
  return set;
}

} // namespace qv::tool
