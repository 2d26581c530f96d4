#include "call/run.h"

#include <algorithm>

#include "call/streams.h"

namespace qv::tool {
namespace {

struct Inputs {
  const Samples *far = nullptr; ///< with it the receive path runs
  const Samples *mic = nullptr; ///< with it the transmit path runs
  const Samples *ref = nullptr; ///< without it the receive output is the echo reference
};

SampleSource reading(const Samples *samples) {
  if (!samples)
    return {};
  return [rest = std::span(*samples)](std::span<int16_t> to) mutable {
    const size_t count = std::min(rest.size(), to.size());
    std::copy_n(rest.begin(), count, to.begin());
    rest = rest.subspan(count);
    return count;
  };
}

SampleSink appending(Samples &samples) {
  return [&samples](std::span<const int16_t> more) { samples.insert(samples.end(), more.begin(), more.end()); };
}

Run run(const Setup &setup, const Inputs &in, const RunOptions &options) {
  Run result;
  size_t length = 0;
  for (const Samples *samples : {in.far, in.mic, in.ref})
    length = std::max(length, samples ? samples->size() : 0);
  const size_t frames = (length + size_t(setup.frame_len) - 1) / size_t(setup.frame_len);
  if (in.far)
    result.played.reserve(length);
  if (in.mic)
    result.sent.reserve(length);
  const auto count_frame = [&](const QvVoiceTrace &trace, double seconds) {
    result.trace.push_back(trace);
    result.frame_seconds.push_back(seconds);
    if (options.progress)
      options.progress(std::min(result.trace.size(), frames), frames);
  };
  result.latency = run_streams(setup,
                               {.far = reading(in.far),
                                .mic = reading(in.mic),
                                .ref = reading(in.ref),
                                .sent = appending(result.sent),
                                .played = appending(result.played),
                                .frame = count_frame},
                               options.compensate);
  return result;
}

} // namespace

Run run_tx(const Setup &setup, const Samples &mic, const Samples &ref, const RunOptions &options) {
  return run(setup, {.mic = &mic, .ref = &ref}, options);
}

Run run_rx(const Setup &setup, const Samples &far, const RunOptions &options) {
  return run(setup, {.far = &far}, options);
}

Run run_both(const Setup &setup, const Samples &far, const Samples &mic, const RunOptions &options) {
  return run(setup, {.far = &far, .mic = &mic}, options);
}

} // namespace qv::tool
