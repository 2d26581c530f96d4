// The gain between reference and microphone: whether it steps, or never holds still.

#include "diagnose/checks.h"
#include "diagnose/talk.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace qv::tool::diagnose {
namespace {

struct GainStep {
  double time; ///< s
  double change_db;
  double spread_db; ///< how much the change differs over frequency: standard deviation
  double chance_db; ///< spread between windows without a change
};

using Windows = std::vector<EchoWindow>;
constexpr size_t side = 3; ///< windows before and after a step

constexpr const char *too_short = "could not be measured: it takes 6 s of clear echo, {} were found";

Windows clear_windows(const Evidence &evidence) {
  Windows clear;
  std::ranges::copy_if(evidence.echo.windows, std::back_inserter(clear),
                       [](const EchoWindow &window) { return window.gain_db.has_value(); });
  return clear;
}

/// Their gain, when it holds still.
std::optional<double> steady_gain(const EchoWindow *windows) {
  constexpr double steady_db = 1.5;
  std::vector<double> gains;
  for (size_t i = 0; i < side; ++i)
    gains.push_back(*windows[i].gain_db);
  const double middle = median(gains);
  const bool steady = std::ranges::all_of(gains, [&](double gain) { return std::abs(gain - middle) <= steady_db; });
  return steady ? std::optional(middle) : std::nullopt;
}

/// Product of a bin's transfers over some windows; 0 when one of them is not clear.
double product(const EchoWindow *windows, size_t count, size_t bin) {
  double all = 1;
  for (size_t i = 0; i < count; ++i)
    all *= windows[i].transfer[bin];
  return all;
}

/// How much the transfer's change from some windows to others differs over frequency, dB: standard deviation.
double spread_of_change(const EchoWindow *before, const EchoWindow *after, size_t count) {
  std::vector<double> changes;
  for (size_t k = 0; k < before->transfer.size(); ++k)
    if (const double from = product(before, count, k), to = product(after, count, k); from > 0 && to > 0)
      changes.push_back(10 * std::log10(to / from) / double(count));
  if (changes.empty())
    return 0;
  return (quantile(changes, 0.9) - quantile(changes, 0.1)) / 2.56; // of a normal distribution, the standard deviation
}

/// What that spread would be if nothing had changed: from the first to the last window of each side.
double spread_by_chance(const EchoWindow *before, const EchoWindow *after) {
  const double within = spread_of_change(before, before + side - 1, 1) + spread_of_change(after, after + side - 1, 1);
  return within / 2 / std::sqrt(double(side));
}

/// Changes of the echo's gain between some steady windows and the next ones; the change may lie within a window.
std::vector<GainStep> gain_steps(const Windows &windows) {
  constexpr double least_db = 3;
  std::vector<GainStep> steps;
  for (size_t i = side; i + side <= windows.size(); ++i)
    for (const size_t within : {0, 1}) {
      if (i + within + side > windows.size())
        continue;
      const EchoWindow *before = &windows[i - side], *after = &windows[i + within];
      const auto from = steady_gain(before), to = steady_gain(after);
      if (!from || !to || std::abs(*to - *from) < least_db)
        continue;
      steps.push_back({(before[side - 1].time + after[0].time) / 2, *to - *from, spread_of_change(before, after, side),
                       spread_by_chance(before, after)});
      i += within + side - 1;
      break;
    }
  return steps;
}

/// Gains of the windows, each against the middle of those between the same two steps.
std::vector<double> gains_between(const Windows &windows, const std::vector<GainStep> &steps) {
  constexpr double straddled = 0.8; // s about a step
  std::vector<double> all, piece;
  const auto close = [&] {
    const double middle = piece.empty() ? 0 : median(piece);
    for (const double gain : piece)
      all.push_back(gain - middle);
    piece.clear();
  };
  auto step = steps.begin();
  for (const EchoWindow &window : windows) {
    for (; step != steps.end() && window.time > step->time; ++step)
      close();
    if (std::ranges::none_of(steps, [&](const GainStep &one) { return std::abs(one.time - window.time) < straddled; }))
      piece.push_back(*window.gain_db);
  }
  close();
  return all;
}

} // namespace

Check check_volume(const Evidence &evidence) {
  // A volume control moves all frequencies alike, a moved loudspeaker does not.
  constexpr double always_uniform_db = 0.4, times_chance = 1.5;
  Check check{"volume", "Volume control"};
  check.limit = "no step of 3 dB or more in the echo's gain over all frequencies";
  check.numbers["steps"] = nullptr;
  const Windows clear = clear_windows(evidence);
  if (clear.size() < 2 * side) {
    check.found = fmt::format(too_short, clear.size());
    return check;
  }
  auto steps = nlohmann::ordered_json::array();
  std::vector<std::string> volume, path;
  for (const GainStep &step : gain_steps(clear)) {
    const bool uniform = step.spread_db <= std::max(always_uniform_db, times_chance * step.chance_db);
    steps.push_back({{"time_s", step.time},
                     {"change_db", step.change_db},
                     {"spread_db", step.spread_db},
                     {"chance_db", step.chance_db}});
    (uniform ? volume : path).push_back(fmt::format("{:+.1f} dB at {:.0f} s", step.change_db, step.time));
  }
  check.numbers["steps"] = steps;
  check.state = !volume.empty() ? state_of_change(evidence) : !path.empty() ? State::note : State::ok;
  check.found = "the echo's gain over the reference has no steps";
  if (!volume.empty()) {
    check.found = fmt::format("the echo's gain steps while the reference does not: {}", fmt::join(volume, ", "));
    check.next = "The volume is changed behind the place where the reference is taken. Take the reference behind the "
                 "volume control, or apply the volume to the reference too.";
  } else if (check.state == State::note) {
    check.found = fmt::format("the echo path changes: {}", fmt::join(path, ", "));
    check.next =
        "Something moved near the device, or an equaliser changed behind the reference; the filter has to learn "
        "again each time.";
  }
  return check;
}

Check check_gain_control(const Evidence &evidence) {
  constexpr double most_db = 1.3, certain_db = 0.9; // linear paths stay below 1.1, mostly below 0.9
  constexpr double echo_alone = 0.7;
  Check check{"gain_control", "Gain control before"};
  check.limit = fmt::format("a gain of the echo that stays within {:.1f} dB from second to second", most_db);
  check.numbers["range_db"] = nullptr;
  Windows clear = clear_windows(evidence);
  const std::vector<GainStep> steps = gain_steps(clear);
  std::erase_if(clear, [](const EchoWindow &window) { return window.coherent < echo_alone; });
  const std::vector<double> gains = gains_between(clear, steps);
  if (gains.size() < 2 * side) {
    check.found = fmt::format(too_short, gains.size());
    return check;
  }
  const double range = quantile(gains, 0.9) - quantile(gains, 0.1);
  check.numbers["range_db"] = range;
  check.found = fmt::format("it moves by {:.1f} dB (10th to 90th percentile)", range);
  check.state = range <= certain_db ? State::ok : range <= most_db ? State::unmeasured : state_of_change(evidence);
  if (check.state == State::unmeasured)
    check.found =
        fmt::format("could not be measured: it moves by {:.1f} dB, as a voice and its room may make it", range);
  if (range > most_db) {
    check.found = "the gain between reference and microphone never holds still: " + check.found;
    check.next = "Switch off automatic gain control, compressors and limiters of the sound card, the codec and the "
                 "loudspeaker's amplifier; the library has a gain control of its own, behind the canceller.";
  }
  return check;
}

} // namespace qv::tool::diagnose
