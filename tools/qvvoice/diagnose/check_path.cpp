// How the echo reaches the microphone: its order, delay, drift and gain.

#include "diagnose/checks.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "qvvoice/aec/aec.h"

namespace qv::tool::diagnose {
namespace {

constexpr const char *no_echo = "could not be measured: no echo was found";

double ms(double seconds) { return 1000 * seconds; }

/// Share of the 64 ms blocks with a strong reference that should be heard in the microphone, but are not.
double unheard_share(const Evidence &evidence) {
  size_t strong = 0, unheard = 0;
  for (const EchoBlock &block : evidence.echo.blocks) {
    if (block.predicted < from_db(20) * evidence.floor)
      continue;
    ++strong;
    unheard += block.mic < from_db(-10) * block.predicted;
  }
  return strong > 0 ? double(unheard) / double(strong) : 0;
}

struct GainStep {
  double time; ///< s
  double change_db;
  double spread_db; ///< how much the change differs over frequency: standard deviation
};

using Windows = std::vector<EchoWindow>;
constexpr size_t side = 3; ///< windows before and after a step

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
double product(const EchoWindow *windows, size_t bin) {
  double all = 1;
  for (size_t i = 0; i < side; ++i)
    all *= windows[i].transfer[bin];
  return all;
}

double spread_of_change(const EchoWindow *before, const EchoWindow *after) {
  std::vector<double> changes;
  for (size_t k = 0; k < before->transfer.size(); ++k)
    if (const double from = product(before, k), to = product(after, k); from > 0 && to > 0)
      changes.push_back(10 * std::log10(to / from) / double(side));
  if (changes.empty())
    return 0;
  const double mean = std::reduce(changes.begin(), changes.end()) / double(changes.size());
  double squares = 0;
  for (const double change : changes)
    squares += (change - mean) * (change - mean);
  return std::sqrt(squares / double(changes.size()));
}

/// Changes of the echo's gain between some steady windows and the next ones.
std::vector<GainStep> gain_steps(const Windows &all) {
  constexpr double least_db = 3;
  Windows windows;
  std::ranges::copy_if(all, std::back_inserter(windows), [](const EchoWindow &w) { return w.gain_db.has_value(); });
  std::vector<GainStep> steps;
  for (size_t i = side; i + side <= windows.size(); ++i) {
    const EchoWindow *before = &windows[i - side], *after = &windows[i];
    const auto from = steady_gain(before), to = steady_gain(after);
    if (!from || !to || std::abs(*to - *from) < least_db)
      continue;
    steps.push_back({(windows[i - 1].time + windows[i].time) / 2, *to - *from, spread_of_change(before, after)});
    i += side - 1;
  }
  return steps;
}

/// "the echo runs 8.84 % fast: 44.1 kHz played as 48 kHz?" @param speed  of the echo against the reference
std::string speed_text(double speed) {
  constexpr std::pair<double, double> mistakes[] = {{44.1, 48},    {8, 16},      {16, 48},   {32, 48},
                                                    {22.05, 44.1}, {11.025, 16}, {16, 22.05}}; // kHz, and its inverse
  constexpr double near = 0.002;
  const std::string runs =
      std::abs(speed - 2) < near ? "twice as fast as the reference"
      : std::abs(speed - 0.5) < near
          ? "at half the speed of the reference"
          : fmt::format("{:.2f} % {} against the reference", 100 * std::abs(speed - 1), speed > 1 ? "fast" : "slow");
  for (const auto &[one, other] : mistakes)
    for (const auto &[made, played] : {std::pair(one, other), std::pair(other, one)})
      if (std::abs(speed * made / played - 1) < near)
        return fmt::format("the echo runs {}: {} kHz played as {} kHz?", runs, made, played);
  return fmt::format("the echo runs {}", runs);
}

} // namespace

Check check_order(const Evidence &evidence) {
  constexpr double tolerance = 0.001; // s
  Check check{"order", "Order of the two"};
  check.limit = "a delay of at least 0 ms";
  check.numbers = {{"delay_ms", nullptr}, {"unheard_share", nullptr}};
  const DelayHistory &delay = evidence.delay;
  if (delay.points.empty()) {
    check.found = no_echo;
    return check;
  }
  const double unheard = unheard_share(evidence);
  check.numbers = {{"delay_ms", ms(delay.median)}, {"unheard_share", unheard}};
  check.found = fmt::format("the microphone follows the reference by {:.1f} ms", ms(delay.median));
  check.state = delay.median >= -tolerance ? State::ok : State::wrong;
  if (check.state == State::ok)
    return check;
  check.found = fmt::format("the microphone leads the reference by {:.1f} ms", ms(-delay.median));
  if (unheard > 0.1) {
    check.found = fmt::format("the two files are swapped: {}, and {:.0f} % of the reference's sound is not heard in it",
                              check.found, 100 * unheard);
    check.next = "Exchange microphone and reference.";
  } else {
    check.next = fmt::format("An echo cannot come before its cause. Take the reference before the playback buffer, or "
                             "delay the microphone by more than {:.0f} ms; or the two files are swapped.",
                             ms(-delay.median));
  }
  return check;
}

Check check_reach(const Evidence &evidence) {
  const Setup &setup = evidence.setup;
  const bool tracks = parameter(setup, "aec", "track_delay") == 1;
  const double fixed = parameter(setup, "aec", "echo_delay") / setup.rate;
  const double tail = double(filter_frames * setup.frame_len) / setup.rate;
  const int look_back = (delay_candidates - 1) * setup.frame_len / blocks_per_frame;
  const double reach = std::min(AEC_MAX_DELAY, look_back) / double(setup.rate);
  const double least = tracks ? 0 : fixed, most = tracks ? reach : fixed + tail;

  Check check{"reach", "Reach of the library"};
  check.limit = fmt::format("{:.0f} to {:.0f} ms", ms(least), ms(most));
  check.numbers = {{"delay_ms", nullptr}, {"least_ms", ms(least)}, {"most_ms", ms(most)}};
  const DelayHistory &delay = evidence.delay;
  if (delay.points.empty()) {
    check.found = no_echo;
    return check;
  }
  check.numbers["delay_ms"] = ms(delay.median);
  check.found = fmt::format("the echo comes {:.1f} ms after the reference", ms(delay.median));
  const bool late = delay.high > most, early = delay.low < least - 0.001;
  check.state = late || early ? State::wrong : State::ok;
  if (!tracks && check.state == State::wrong)
    check.next = fmt::format("Set aec.echo_delay to {} samples, or let aec.track_delay track it.",
                             std::max(0L, std::lround((delay.low - 0.001) * setup.rate)));
  else if (late)
    check.next = fmt::format("Shorten the buffers of playback and capture, or delay the reference by {:.0f} ms before "
                             "it is handed over.",
                             ms(delay.high - most / 2));
  else if (early)
    check.next = "See the order of the two signals.";
  return check;
}

Check check_steady_delay(const Evidence &evidence) {
  constexpr double widest = 0.004; // s: a tenth of the filter at 20 ms frames
  const DelayHistory &delay = evidence.delay;
  Check check{"steady_delay", "Steadiness of the delay"};
  check.limit = fmt::format("no jumps, {:.0f} ms between the 10th and 90th percentile", ms(widest));
  check.numbers = {{"spread_ms", nullptr}, {"jumps", nullptr}};
  if (delay.points.size() < 2) {
    check.found = "could not be measured: the echo was found in fewer than two windows";
    return check;
  }
  auto jumps = nlohmann::ordered_json::array();
  std::vector<std::string> words;
  for (const DelayHistory::Jump &jump : delay.jumps) {
    jumps.push_back({{"time_s", jump.time}, {"from_ms", ms(jump.from)}, {"to_ms", ms(jump.to)}});
    words.push_back(fmt::format("at {:.0f} s from {:.1f} to {:.1f} ms", jump.time, ms(jump.from), ms(jump.to)));
  }
  const double spread = delay.high - delay.low;
  check.numbers = {{"spread_ms", ms(spread)}, {"jumps", jumps}};
  check.found = fmt::format("spread {:.2f} ms", ms(spread));
  check.state = delay.jumps.empty() && spread <= widest ? State::ok : State::wrong;
  if (!delay.jumps.empty()) {
    check.found = fmt::format("it jumps {}; {}", fmt::join(words, ", "), check.found);
    check.next = "Buffers run empty or over, or a stream is restarted: after each jump the output is muted and the "
                 "filter starts again. Look for underruns, and tie playback and capture to one clock and one buffer.";
  } else if (check.state == State::wrong) {
    check.next = "The delay wanders: see the clock drift.";
  }
  return check;
}

Check check_drift(const Evidence &evidence) {
  constexpr double most_ppm = 20; // 1 ms in 50 s; a filter that has to follow faster loses depth
  const double clock = evidence.alignment.clock;
  const bool apart = clock != 1;
  Check check{"drift", "Clocks"};
  check.limit = fmt::format("a drift of at most {:.0f} ppm", most_ppm);
  check.numbers = {{"drift_ppm", nullptr}, {"echo_speed", nullptr}};
  if (!evidence.delay.drift_ppm && !apart) {
    check.found = "could not be measured: it takes 10 s of echo at one delay";
    return check;
  }
  const double total = clock * (1 + 1e-6 * evidence.delay.drift_ppm.value_or(0)), drift = 1e6 * (total - 1);
  check.numbers = {{"drift_ppm", drift}, {"echo_speed", 1 / total}};
  check.state = std::abs(drift) <= most_ppm ? State::ok : State::wrong;
  if (std::abs(drift) >= 5000) {
    check.found = speed_text(1 / total);
    check.next = "Playback, capture and the two files must have one sample rate: look for a rate that is set wrong or "
                 "a conversion that is left out.";
    return check;
  }
  check.found = fmt::format("the delay {} by {:.1f} ppm ({:.2f} ms per minute)", drift < 0 ? "shrinks" : "grows",
                            std::abs(drift), 0.06 * std::abs(drift));
  if (check.state == State::wrong)
    check.next = "Playback and capture run from different clocks. Use one clock, or resample the reference to the "
                 "capture clock before it is handed over.";
  return check;
}

Check check_volume(const Evidence &evidence) {
  constexpr double uniform_db = 1.0; // a volume control moves all frequencies alike, a moved loudspeaker does not
  Check check{"volume", "Volume control"};
  check.limit = "no step of 3 dB or more in the echo's gain over all frequencies";
  check.numbers["steps"] = nullptr;
  const auto clear =
      std::ranges::count_if(evidence.echo.windows, [](const EchoWindow &w) { return w.gain_db.has_value(); });
  if (clear < 6) {
    check.found = fmt::format("could not be measured: it takes 6 s of clear echo, {} were found", clear);
    return check;
  }
  auto steps = nlohmann::ordered_json::array();
  std::vector<std::string> volume, path;
  for (const GainStep &step : gain_steps(evidence.echo.windows)) {
    const bool uniform = step.spread_db <= uniform_db;
    steps.push_back({{"time_s", step.time}, {"change_db", step.change_db}, {"spread_db", step.spread_db}});
    (uniform ? volume : path).push_back(fmt::format("{:+.1f} dB at {:.0f} s", step.change_db, step.time));
  }
  check.numbers["steps"] = steps;
  check.state = !volume.empty() ? State::wrong : !path.empty() ? State::note : State::ok;
  check.found = "the echo's gain over the reference has no steps";
  if (check.state == State::wrong) {
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

} // namespace qv::tool::diagnose
