#include "diagnose/alignment.h"

#include <algorithm>
#include <cmath>

#include "diagnose/delay_history.h"
#include "signal/activity.h"
#include "signal/resample.h"

namespace qv::tool::diagnose {
namespace {

constexpr double earliest_delay = -1, latest_delay = 2; // s, searched
constexpr int search_rate = 4000;                       // Hz: at 1 kHz a clock 500 ppm off turns half a period in 1 s
constexpr double search_seconds = 8;
constexpr double grid_step = 0.001, grid_end = 0.05;
constexpr double least_clock = 100e-6; // below, windows of 4 s stay within a few samples

constexpr double usual_rates[] = {8000, 16000, 44100, 48000};

DelaySearch search_for(double seconds) {
  const double window = std::clamp(seconds / 3, 1.0, 4.0);
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

/// Points that agree with others across at least a whole window; chance peaks agree with windows that overlap only.
std::vector<DelayPoint> agreeing(const std::vector<DelayPoint> &points, double window) {
  constexpr double sure = 20; // strength that needs no second window
  std::vector<DelayPoint> kept;
  bool any = false;
  for (const std::vector<DelayPoint> &piece : pieces_of(points)) {
    const double strongest = std::ranges::max(piece, {}, &DelayPoint::strength).strength;
    any = any || piece.back().time - piece.front().time >= window || strongest >= sure;
    kept.insert(kept.end(), piece.begin(), piece.end());
  }
  return any ? kept : std::vector<DelayPoint>();
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

/// The clock at which the most windows agree. The first seconds with sound will do.
double coarse_clock(const Signal &mic, const Signal &ref, int rate) {
  constexpr double clearly = 1.3; // times the agreement at one clock
  const auto sound = std::ranges::find_if(ref, [](double value) { return std::abs(value) > 0.01; }) - ref.begin();
  const Signal slow_mic = resample(mic, rate, search_rate), slow_ref = resample(ref, rate, search_rate);
  const size_t length = size_t(search_seconds * search_rate);
  const DelaySearch search{
      .window = 1, .hop = 1, .earliest = earliest_delay, .latest = latest_delay, .least_strength = 6.5};
  double best = 1, most = 0, unmoved = 0;
  for (const double clock : clocks()) {
    const auto begin = std::ptrdiff_t(double(sound) / rate * search_rate * clock);
    const Signal moved = on_clock(slow_ref, clock, slow_mic.size());
    const double found =
        agreement(delay_points(excerpt(slow_mic, begin, length), excerpt(moved, begin, length), search_rate, search));
    if (clock == 1)
      unmoved = found;
    if (found > most) {
      most = found;
      best = clock;
    }
  }
  return most > clearly * unmoved ? best : 1;
}

/// Follows the slope that is left until there is none.
Alignment refined(const Signal &mic, const Signal &ref, int rate, double clock) {
  const DelaySearch search = search_for(double(mic.size()) / rate);
  Alignment found{clock, on_clock(ref, clock, mic.size()), {}};
  for (int round = 0;; ++round) {
    found.points = agreeing(delay_points(mic, found.ref, rate, search), search.window);
    const auto drift = delay_history(found.points).drift_ppm;
    if (round == 3 || !drift || std::abs(*drift) < 1e6 * least_clock)
      return found;
    found.clock *= 1 + 1e-6 * *drift;
    found.ref = on_clock(ref, found.clock, mic.size());
  }
}

/// Share of the windows with sound in the reference that have a point.
double covered(const Alignment &alignment, int rate) {
  const DelaySearch search = search_for(double(alignment.ref.size()) / rate);
  const auto talks = activity(alignment.ref, rate);
  size_t windows = 0;
  for (double begin = 0; begin + search.window <= double(alignment.ref.size()) / rate; begin += search.hop) {
    const auto first = talks.begin() + std::ptrdiff_t(begin / frame_seconds);
    windows += std::count(first, first + std::ptrdiff_t(search.window / frame_seconds), true) >
               std::ptrdiff_t(search.window / frame_seconds / 2);
  }
  return windows > 0 ? double(alignment.points.size()) / double(windows) : 1;
}

} // namespace

Alignment align(const Signal &mic, const Signal &ref, int rate) {
  constexpr double enough = 0.75;
  Alignment same = refined(mic, ref, rate, 1);
  if (energy(mic) == 0 || energy(ref) == 0 || covered(same, rate) >= enough)
    return same;
  const double clock = coarse_clock(mic, ref, rate);
  if (clock == 1)
    return same;
  Alignment other = refined(mic, ref, rate, clock);
  return other.points.size() > same.points.size() ? other : same;
}

} // namespace qv::tool::diagnose
