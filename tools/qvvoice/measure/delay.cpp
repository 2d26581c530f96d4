// Where the library looks for the echo, and where the echo is.

#include <algorithm>

#include "dsp/layout.h"
#include "measure/frames.h"
#include "signal/correlation.h"

namespace qv::tool::measure {
namespace {

constexpr double settled_seconds = 0.5; ///< an estimate in reach for so long has settled

constexpr double found_from = 2; ///< s, the delay should be found by then

/// The first arrival of the echo lies within the canceller's adaptive filter. @param samples  after the reference
bool in_reach(double arrival, const QvVoiceTrace &frame, int frame_len) {
  const int begin = frame.state_space ? frame.filter_delay : frame.echo_delay;
  const int length = frame.state_space ? frame.filter_length : filter_frames * frame_len;
  return arrival >= begin && arrival < begin + length;
}

/// It is where the library sees the echo, within half a frame: the step of the two-path canceller's estimator.
bool is_found(double arrival, const QvVoiceTrace &frame, int frame_len) {
  return std::abs(arrival - frame.echo_delay) <= double(frame_len) / blocks_per_frame;
}

/// The library frames for whose true delay one of these holds.
template <class Good> std::vector<bool> where(const Frames &frames, const Good &good) {
  const Output &output = frames.output;
  std::vector<bool> flags(output.trace.size());
  for (size_t k = 0; k < flags.size(); ++k) {
    const double time = double(k) * output.frame_len / frames.subject.rate;
    const double arrival = *scene::delay_at(*frames.subject.truth, time) * frames.subject.rate;
    flags[k] = good(arrival, output.trace[k], output.frame_len);
  }
  return flags;
}

/// Of the frames from a time on in which the far end is heard.
Value share_of(const Frames &frames, const std::vector<bool> &chosen, double from) {
  size_t heard = 0, good = 0;
  for (auto i = size_t(from / frame_seconds); i < frames.far_heard->size(); ++i) {
    const auto k = size_t((double(i) + 0.5) * frame_seconds * frames.subject.rate / frames.output.frame_len);
    if (!(*frames.far_heard)[i] || k >= chosen.size())
      continue;
    ++heard;
    good += chosen[k];
  }
  return heard > 0 ? Value(100.0 * double(good) / double(heard)) : Value(Gap::absent);
}

/// Time from the frame of an event until the estimate has settled in reach.
Value time_until_settled(const std::vector<bool> &reached, size_t from, double frame) {
  const auto needed = size_t(std::ceil(settled_seconds / frame));
  size_t run = 0;
  for (size_t k = from; k < reached.size(); ++k) {
    run = reached[k] ? run + 1 : 0;
    if (run == needed)
      return double(k + 1 - needed - from) * frame;
  }
  return Gap::never;
}

Value delay_recovery(const Frames &frames, const std::vector<bool> &reached) {
  const double frame = double(frames.output.frame_len) / frames.subject.rate;
  Value worst = Gap::absent;
  for (const scene::EchoEvent &event : frames.subject.truth->events) {
    if (!event.new_delay)
      continue;
    const Value one = time_until_settled(reached, size_t(std::lround(event.time / frame)), frame);
    if (!one.known())
      return one;
    worst = worst.known() ? std::max(worst.number(), one.number()) : one.number();
  }
  return worst;
}

} // namespace

void measure_delay(const Frames &frames, Results &results) {
  const Subject &subject = frames.subject;
  results.delay_heard_ms = frames.delay ? Value(1e3 * frames.delay->delay) : Value(Gap::absent);
  const Output &output = frames.output;
  if (!output.trace.empty())
    results.delay_found_ms = 1e3 * output.trace.back().echo_delay / subject.rate;
  if (!subject.truth || subject.truth->delay.empty())
    return;
  if (frames.far_heard && std::ranges::count(*frames.far_heard, true) == 0) {
    results.delay_true_ms = results.delay_found_percent = results.delay_in_reach_percent = results.delay_recovery_s =
        Gap::absent;
    return;
  }
  results.delay_true_ms = 1e3 * *delay_at(*subject.truth, double(subject.mic.size()) / subject.rate);
  if (output.trace.empty())
    return;
  const std::vector<bool> reached = where(frames, in_reach), found = where(frames, is_found);
  if (frames.far_heard) {
    results.delay_in_reach_percent = share_of(frames, reached, 0);
    results.delay_found_percent = share_of(frames, found, found_from);
  }
  results.delay_recovery_s = delay_recovery(frames, reached);
}

} // namespace qv::tool::measure
