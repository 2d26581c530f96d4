// The echo canceller at work: whether it is on, has the echo in reach, and learns its path.

#include "diagnose/checks.h"
#include "diagnose/talk.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace qv::tool::diagnose {
namespace {

double ms(double seconds) { return 1000 * seconds; }

constexpr const char *canceller_off = "could not be measured: the echo canceller is off";

bool canceller_on(const Evidence &evidence) { return evidence.canceller != EchoCanceller::off; }

/// s after the reference, between which the first arrival of an echo is in reach of the canceller's filter.
struct Reach {
  double begin, end;
  bool holds(double delay) const { return delay >= begin && delay <= end; }
};

/// The filter of the two-path canceller begins at the delay that it has found, which is right within a block.
Reach reach_of(const QvVoiceTrace &frame, const Evidence &evidence) {
  const double rate = evidence.setup.rate;
  if (frame.state_space)
    return {frame.filter_delay / rate, (frame.filter_delay + frame.filter_length) / rate};
  const double block = evidence.frame_seconds() / blocks_per_frame, begin = frame.echo_delay / rate - block;
  return {begin, begin + filter_frames * evidence.frame_seconds()};
}

/// s after the reference as it was handed over, which its clock moves against the aligned one.
double delay_as_given(const DelayPoint &point, const Evidence &evidence) {
  return point.time - (point.time - point.delay) / evidence.alignment.clock;
}

/// Where the library sees the echo, against where the recording has it.
struct DelayComparison {
  std::vector<double> errors; ///< s, positive: behind it
  size_t in_reach = 0;
  std::optional<double> first; ///< s, of the first window in reach

  double share() const { return double(in_reach) / double(errors.size()); }
};

DelayComparison compare_delays(const Evidence &evidence) {
  DelayComparison comparison;
  for (const DelayPoint &point : evidence.delay.points) {
    const QvVoiceTrace &frame = evidence.frame_at(point.time);
    const double delay = delay_as_given(point, evidence);
    comparison.errors.push_back(double(frame.echo_delay) / evidence.setup.rate - delay);
    if (!reach_of(frame, evidence).holds(delay))
      continue;
    ++comparison.in_reach;
    comparison.first = comparison.first.value_or(point.time);
  }
  return comparison;
}

} // namespace

Check check_canceller_on(const Evidence &evidence) {
  const auto on = [&](const char *section, const char *key) { return parameter(evidence.setup, section, key) == 1; };
  Check check{"canceller_on", "Echo canceller"};
  const bool state_space = on("echo_control", "enable"); // which has a suppressor of its own
  const bool suppresses = state_space || on("aec.suppressor", "echo_ratio") || on("aec.suppressor", "coherence");
  const char *turned = canceller_on(evidence) ? "on" : "off", *source = evidence.setup.para_source.c_str();
  check.numbers = {
      {"canceller", canceller_on(evidence)}, {"suppressor", suppresses}, {"state_space", evidence.state_space()}};
  check.limit = state_space ? "canceller on" : "canceller and one suppressor on";
  check.found = state_space
                    ? fmt::format("state-space canceller {} ({})", turned, source)
                    : fmt::format("canceller {}, suppressor {} ({})", turned, suppresses ? "on" : "off", source);
  check.state = !canceller_on(evidence) ? State::wrong : !suppresses ? State::note : State::ok;
  if (check.state != State::ok)
    check.next = fmt::format("Set aec.enable {}to true in the parameter file.",
                             state_space ? "" : "and aec.suppressor.coherence (or aec.suppressor.echo_ratio) ");
  return check;
}

Check check_delay_found(const Evidence &evidence) {
  Check check{"delay_found", "Delay found by the library"};
  const double block = evidence.frame_seconds() / blocks_per_frame, tail = filter_frames * evidence.frame_seconds();
  check.limit = evidence.state_space() ? "the echo in reach of the filter, most of the time"
                                       : fmt::format("{:.0f} ms before to {:.0f} ms behind the echo, most of the time",
                                                     ms(tail - block), ms(block));
  check.numbers = {{"error_ms", nullptr}, {"share_found", nullptr}, {"first_found_s", nullptr}};
  if (!canceller_on(evidence) || evidence.delay.points.empty()) {
    check.found = canceller_on(evidence) ? "could not be measured: no echo was found" : canceller_off;
    return check;
  }
  const DelayComparison comparison = compare_delays(evidence);
  const double error = median(comparison.errors), share = comparison.share();
  check.numbers = {{"error_ms", ms(error)}, {"share_found", share}, {"first_found_s", nullptr}};
  if (comparison.first)
    check.numbers["first_found_s"] = *comparison.first;
  check.found =
      fmt::format("{:.1f} ms {} the echo, {} in {:.0f} % of the windows", ms(std::abs(error)),
                  error > 0 ? "behind" : "before", evidence.state_space() ? "in reach" : "right", 100 * share);
  const bool late = error > 0.001 && !evidence.state_space(); // whose filter holds what comes before its highest tap
  check.state = share < 0.7 ? State::wrong : late ? State::note : State::ok;
  if (check.state == State::wrong && evidence.state_space())
    check.next = "The filter does not lie where the echo is: see the delay's reach and steadiness.";
  else if (check.state == State::wrong)
    check.next = "Without the right delay the filter models nothing. If the delay holds still, give it: "
                 "aec.track_delay = false and aec.echo_delay; otherwise see the delay's reach and steadiness.";
  else if (check.state == State::note)
    check.next =
        fmt::format("The filter cannot model what arrives before it; the suppressor has to do more. If the delay "
                    "holds still: aec.track_delay = false, aec.echo_delay = {}.",
                    std::max(0L, std::lround((evidence.delay.low - 0.001) * evidence.setup.rate)));
  return check;
}

Check check_filter(const Evidence &evidence) {
  Check check{"filter", "Adaptive filter"};
  check.limit = fmt::format("after {:.0f} s of reference", settle_seconds);
  check.numbers = {{"adapted_s", nullptr},
                   {"active_before_s", nullptr},
                   {"resets", nullptr},
                   {"path_changes", nullptr},
                   {"linear_erle_db", nullptr}};
  if (!canceller_on(evidence) || evidence.ref_active_seconds < settle_seconds) {
    check.found = canceller_on(evidence)
                      ? fmt::format("could not be measured: it takes {:.0f} s of active reference", settle_seconds)
                      : canceller_off;
    return check;
  }
  const auto &trace = evidence.trace;
  const auto adapted = std::ranges::find(trace, 1, &QvVoiceTrace::filter_adapted);
  const auto resets = std::ranges::count(trace, 1, &QvVoiceTrace::filter_reset),
             changes = std::ranges::count(trace, 1, &QvVoiceTrace::path_changed);
  const double start = active_for(evidence, block_hop), due = active_for(evidence, settle_seconds);
  check.numbers[evidence.state_space() ? "path_changes" : "resets"] = evidence.state_space() ? changes : resets;
  if (adapted == trace.end()) {
    check.state = State::wrong;
    check.found = "never trained";
    check.next = "The filter finds nothing to learn: see the echo, its delay and the levels above.";
    return check;
  }
  const double time = double(adapted - trace.begin()) * evidence.frame_seconds();
  std::vector<double> erle;
  for (const EchoBlock &block : evidence.echo.blocks)
    if (block.time > due && in_echo_alone(evidence, block))
      erle.push_back(double(evidence.frame_at(block.time).linear_erle_db));
  check.numbers["adapted_s"] = time;
  check.numbers["active_before_s"] = std::max(time - start, 0.0);
  check.found = fmt::format(
      "trained after {:.1f} s ({:.1f} s after the reference began), {}", time, std::max(time - start, 0.0),
      evidence.state_space() ? fmt::format("{} changes of the path found", changes) : fmt::format("{} resets", resets));
  if (!erle.empty()) {
    check.numbers["linear_erle_db"] = median(erle);
    check.found += fmt::format("; it takes {:.1f} dB off the echo", median(erle));
  }
  check.state = time > due || resets > 0 ? State::wrong : State::ok;
  if (check.state == State::wrong)
    check.next = "It learns late or loses what it learnt: see delay, drift, clipping and volume above.";
  return check;
}

} // namespace qv::tool::diagnose
