// How the echo reaches the microphone: its order, delay and drift.

#include "diagnose/checks.h"
#include "diagnose/talk.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "qvvoice/aec/aec.h"
#include "state_space/shape.h"

namespace qv::tool::diagnose {
namespace {

constexpr const char *no_echo = "could not be measured: no echo was found";

constexpr double order_tolerance = 0.001; // s

double ms(double seconds) { return 1000 * seconds; }

/// Delays between which the canceller in use finds an echo, s.
struct Range {
  double least, most;
};

Range range_of(const Evidence &evidence) {
  const Setup &setup = evidence.setup;
  if (evidence.state_space())
    return {0, double(state_space::longest_delay_ms) / 1000};
  const double fixed = parameter(setup, "aec", "echo_delay") / setup.rate;
  if (parameter(setup, "aec", "track_delay") != 1)
    return {fixed, fixed + double(filter_frames * setup.frame_len) / setup.rate};
  const int look_back = (delay_candidates - 1) * setup.frame_len / blocks_per_frame;
  return {0, std::min(AEC_MAX_DELAY, look_back) / double(setup.rate)};
}

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
  check.state = delay.high >= -order_tolerance ? State::ok : State::wrong; // what only becomes negative is not steady
  if (check.state == State::ok)
    return check;
  constexpr size_t most_jumps = 1;
  if (delay.jumps.size() > most_jumps) {
    check.state = State::unmeasured;
    check.found = "could not be measured: the delay keeps jumping";
    return check;
  }
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
  const bool tracks = evidence.state_space() || parameter(evidence.setup, "aec", "track_delay") == 1;
  const auto [least, most] = range_of(evidence);
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
  // What only comes to lie beyond is not steady; what comes before the reference has the wrong order.
  const bool late = delay.low > most, early = !tracks && delay.high < least - 0.001;
  check.state = late || early ? State::wrong : State::ok;
  if (!tracks && check.state == State::wrong)
    check.next = fmt::format("Set aec.echo_delay to {} samples, or let aec.track_delay track it.",
                             std::max(0L, std::lround((delay.low - 0.001) * evidence.setup.rate)));
  else if (late)
    check.next = fmt::format("Shorten the buffers of playback and capture, or delay the reference by {:.0f} ms before "
                             "it is handed over.",
                             ms(delay.high - most / 2));
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
  const bool leaves = delay.low < -order_tolerance || delay.high > range_of(evidence).most; // what can be followed
  check.state = delay.jumps.empty() && spread <= widest ? State::ok : leaves ? State::wrong : state_of_change(evidence);
  if (!delay.jumps.empty()) {
    check.found = fmt::format("it jumps {}; {}", fmt::join(words, ", "), check.found);
    check.next =
        fmt::format("Buffers run empty or over, or a stream is restarted: after each jump {}. Look for underruns, and "
                    "tie playback and capture to one clock and one buffer.",
                    evidence.state_space() ? "some echo passes, until the filter has found it again"
                                           : "the output is muted and the filter starts again");
  } else if (check.state != State::ok) {
    check.next = "The delay wanders: see the clock drift.";
  }
  return check;
}

Check check_drift(const Evidence &evidence) {
  constexpr double unnoticed_ppm = 20; // 1 ms in 50 s; a filter that has to follow faster loses depth
  constexpr double followed_ppm = 200, accuracy_ppm = 10;
  const double most_ppm = evidence.state_space() ? followed_ppm : unnoticed_ppm;
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
  check.state = std::abs(drift) <= unnoticed_ppm             ? State::ok
                : std::abs(drift) <= most_ppm + accuracy_ppm ? state_of_change(evidence)
                                                             : State::wrong;
  if (std::abs(drift) >= 5000) {
    check.found = speed_text(1 / total);
    check.next = "Playback, capture and the two files must have one sample rate: look for a rate that is set wrong or "
                 "a conversion that is left out.";
    return check;
  }
  check.found = fmt::format("the delay {} by {:.1f} ppm ({:.2f} ms per minute)", drift < 0 ? "shrinks" : "grows",
                            std::abs(drift), 0.06 * std::abs(drift));
  if (check.state == State::note)
    check.next = "Playback and capture run from different clocks; the canceller turns its filter along.";
  else if (check.state == State::wrong)
    check.next = "Playback and capture run from different clocks. Use one clock, or resample the reference to the "
                 "capture clock before it is handed over.";
  return check;
}

} // namespace qv::tool::diagnose
