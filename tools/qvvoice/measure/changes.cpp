// What a change of the echo path, the delay or a stream does to the echo.

#include <algorithm>

#include "measure/far_quarters.h"

namespace qv::tool::measure {
namespace {

/// Whether one of these intervals ends at a time.
bool ends_at(const std::vector<Interval> &intervals, double time) {
  constexpr double same = 1e-3; // s
  return std::ranges::any_of(intervals, [&](const Interval &one) { return std::abs(one.end - time) < same; });
}

const char *kind_of(const scene::EchoEvent &event, const scene::Truth &truth) {
  if (ends_at(truth.muted, event.time))
    return "muted";
  if (ends_at(truth.no_reference, event.time))
    return "no_reference";
  return event.new_delay ? event.new_path ? "both" : "delay" : event.new_path ? "path" : "gap";
}

/// ms by which the delay jumps.
double jump_at(const scene::Truth &truth, double time) {
  constexpr double just = 1e-3; // s
  const auto before = delay_at(truth, time - just), after = delay_at(truth, time + just);
  return before && after ? 1e3 * (*after - *before) : 0;
}

/// Quarters of the first 3 s of far-end single talk after an event, until the next one.
std::vector<FarQuarter> quarters_after(const Frames &frames, size_t event) {
  const auto &events = frames.subject.truth->events;
  const auto frame_at = [&](double time) { return size_t(std::lround(time / frame_seconds)); };
  const size_t end = frames.talk->size();
  const size_t next = event + 1 < events.size() ? std::min(frame_at(events[event + 1].time), end) : end;
  std::vector<FarQuarter> quarters = far_quarters(frames, frame_at(events[event].time), next);
  std::erase_if(quarters, [](const FarQuarter &quarter) { return quarter.spoken >= first_seconds; });
  return quarters;
}

Value worst_of(const std::vector<Recovery> &recoveries) {
  Value worst = Gap::absent;
  for (const Recovery &one : recoveries) {
    if (!one.seconds.known() && one.seconds.gap() == Gap::never)
      return Gap::never;
    if (one.seconds.known())
      worst = worst.known() ? std::max(worst.number(), one.seconds.number()) : one.seconds.number();
  }
  return worst;
}

} // namespace

void measure_changes(const Frames &frames, Results &results) {
  if (!frames.talk)
    return;
  const scene::Truth &truth = *frames.subject.truth;
  const std::vector<FarQuarter> quarters = far_quarters(frames, 0, frames.talk->size());
  std::vector<FarQuarter> after;
  for (size_t i = 0; i < truth.events.size(); ++i) {
    const scene::EchoEvent &event = truth.events[i];
    const std::vector<FarQuarter> own = quarters_after(frames, i);
    results.recoveries.push_back({event.time, kind_of(event, truth), jump_at(truth, event.time),
                                  talk_until_reached(quarters, event.time), mean_over(own, erle_db)});
    after.insert(after.end(), own.begin(), own.end());
  }
  results.path_recovery_s = worst_of(results.recoveries);
  results.erle_after_change_db = mean_over(after, erle_db);
  results.echo_reduction_after_change_db = frames.echo ? mean_over(after, reduction_db) : Value(Gap::unknown);
}

} // namespace qv::tool::measure
