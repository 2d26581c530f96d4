#include "diagnose/alignment.h"

#include <algorithm>
#include <cmath>

#include "diagnose/delay_history.h"
#include "signal/activity.h"
#include "signal/resample.h"

namespace qv::tool::diagnose {
namespace {

constexpr double earliest_delay = -1, latest_delay = 2; // s, searched; three times as far where nothing is found
constexpr double long_window = 4, short_window = 1.25;  // s
constexpr int search_rate = 4000;                       // Hz: at 1 kHz a clock 500 ppm off turns half a period in 1 s
constexpr double search_seconds = 8;
constexpr double grid_step = 0.001, grid_end = 0.05;
constexpr double least_clock = 100e-6; // below, windows of 4 s stay within a few samples

constexpr double usual_rates[] = {8000, 16000, 44100, 48000};

DelaySearch search_with(double window) {
  return {.window = window, .hop = window / 4, .earliest = earliest_delay, .latest = latest_delay};
}

Signal on_clock(SignalView ref, double clock, size_t length) {
  constexpr int unit = 10'000'000;
  const auto needed = std::min(ref.size(), size_t(double(length) / clock) + 1000);
  Signal moved =
      clock == 1 ? Signal(ref.begin(), ref.end()) : resample(ref.first(needed), unit, int(std::lround(unit * clock)));
  moved.resize(length);
  return moved;
}

std::vector<double> clocks() {
  std::vector<double> all;
  for (int i = int(-grid_end / grid_step); i <= int(grid_end / grid_step); ++i)
    all.push_back(1 + i * grid_step);
  for (const double one : usual_rates)
    for (const double other : usual_rates)
      if (const double ratio = one / other; std::abs(ratio - 1) > grid_end && ratio >= 1.0 / 3 && ratio <= 3)
        all.insert(all.end(), {ratio * (1 - grid_step), ratio, ratio * (1 + grid_step)});
  std::ranges::sort(all);
  return all;
}

/// Strengths summed over the windows that agree best.
double agreement(const std::vector<DelayPoint> &points) {
  constexpr double near = 0.01; // s: half a step of the grid over the seconds that are searched
  double best = 0;
  for (const DelayPoint &middle : points) {
    double sum = 0;
    int count = 0;
    for (const DelayPoint &point : points)
      if (std::abs(point.delay - middle.delay) <= near)
        sum += point.strength, ++count;
    best = std::max(best, count >= 3 ? sum : 0);
  }
  return best;
}

/// Value between the samples, on the straight line; enough where only the coarse clock is sought.
double value_at(const Signal &signal, double place) {
  const auto before = size_t(place);
  return before + 1 < signal.size() ? std::lerp(signal[before], signal[before + 1], place - double(before)) : 0;
}

/// The clock at which the most windows agree. The first seconds with sound will do.
double coarse_clock(const Signal &mic, const Signal &ref, int rate) {
  constexpr double clearly = 1.3; // times the agreement at one clock
  const auto sound = std::ranges::find_if(ref, [](double value) { return std::abs(value) > 0.01; }) - ref.begin();
  const Signal slow_mic = resample(mic, rate, search_rate), slow_ref = resample(ref, rate, search_rate);
  const DelaySearch search{
      .window = 1, .hop = 1, .earliest = earliest_delay, .latest = latest_delay, .least_strength = 6.5};
  const double begin = double(sound) / rate * search_rate;
  double best = 1, most = 0, unmoved = 0;
  for (const double clock : clocks()) {
    const auto first = std::ptrdiff_t(begin * clock);
    Signal moved(size_t(search_seconds * search_rate));
    for (size_t i = 0; i < moved.size(); ++i)
      moved[i] = value_at(slow_ref, double(first + std::ptrdiff_t(i)) / clock);
    const double found = agreement(delay_points(excerpt(slow_mic, first, moved.size()), moved, search_rate, search));
    if (clock == 1)
      unmoved = found;
    if (found > most) {
      most = found;
      best = clock;
    }
  }
  return most > clearly * unmoved ? best : 1;
}

double total_strength(const std::vector<DelayPoint> &points) {
  double sum = 0;
  for (const DelayPoint &point : points)
    sum += point.strength;
  return sum;
}

/// Follows the slope of the points as long as that makes them stronger: in windows where the delay only jumps, a clock
/// that moves makes them weaker.
Alignment refined(const Signal &mic, const Signal &ref, int rate, double clock, const DelaySearch &search) {
  constexpr int most_rounds = 5;
  Alignment found;
  double strength = 0, next = clock;
  for (int round = 0; round < most_rounds; ++round) {
    Alignment tried{next, on_clock(ref, next, mic.size()), {}, search.window};
    tried.points = delay_points(mic, tried.ref, rate, search);
    if (round > 0 && total_strength(tried.points) <= strength)
      break;
    strength = total_strength(tried.points);
    found = std::move(tried);
    const auto summary = summarise(found.points);
    if (!summary || std::abs(summary->drift_ppm) < 1e6 * least_clock)
      break;
    next = found.clock * (1 + 1e-6 * summary->drift_ppm);
    if (std::abs(next / clock - 1) > grid_end)
      break;
  }
  found.points = agreeing(found.points, search.window);
  return found;
}

/// Share of the windows with sound in the reference that have a point.
double covered(const Alignment &alignment, int rate) {
  const double window = alignment.window;
  const auto talks = activity(alignment.ref, rate);
  size_t windows = 0;
  for (double begin = 0; begin + window <= double(alignment.ref.size()) / rate; begin += window / 4) {
    const auto first = talks.begin() + std::ptrdiff_t(begin / frame_seconds);
    windows += std::count(first, first + std::ptrdiff_t(window / frame_seconds), true) >
               std::ptrdiff_t(window / frame_seconds / 2);
  }
  return windows > 0 ? double(alignment.points.size()) / double(windows) : 1;
}

} // namespace

std::vector<DelayPoint> agreeing(const std::vector<DelayPoint> &points, double window) {
  constexpr double sure = 20;    // strength that needs no second window
  constexpr double same = 0.002; // s
  std::vector<DelayPoint> kept;
  for (const DelayPoint &point : points)
    if (std::ranges::any_of(points, [&](const DelayPoint &other) {
          const double apart = std::abs(other.time - point.time);
          return std::abs(other.delay - point.delay) <= same && (apart >= window || other.strength >= sure);
        }))
      kept.push_back(point);
  return kept;
}

Alignment align(const Signal &mic, const Signal &ref, int rate) {
  // Shares of the windows; the more is tried, the more windows agree by chance.
  constexpr double enough = 0.75, least_elsewhere = 0.4;
  const DelaySearch usual = search_with(std::clamp(double(mic.size()) / rate / 3, 1.0, long_window));
  Alignment best = refined(mic, ref, rate, 1, usual);
  if (energy(mic) == 0 || energy(ref) == 0)
    return best;
  double most = covered(best, rate);
  const auto offer = [&](Alignment other) {
    if (const double share = covered(other, rate); share > most) {
      most = share;
      best = std::move(other);
    }
  };
  const double usually = most;
  most = std::max(most, least_elsewhere);
  if (usually < enough) // what changes within a window leaves no clear peak
    offer(refined(mic, ref, rate, 1, search_with(short_window)));
  if (best.points.empty()) {
    DelaySearch wide = usual;
    wide.earliest = 3 * earliest_delay;
    wide.latest = 3 * latest_delay;
    offer(refined(mic, ref, rate, 1, wide));
  }
  if (most < enough)
    if (const double clock = coarse_clock(mic, ref, rate); clock != 1)
      offer(refined(mic, ref, rate, clock, usual));
  return best;
}

} // namespace qv::tool::diagnose
