#include "call/run.h"

#include <algorithm>

namespace qv::tool {
namespace {

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

size_t longest(const RunInProgress::Inputs &inputs) {
  size_t length = 0;
  for (const Samples *samples : {inputs.far, inputs.mic, inputs.ref})
    length = std::max(length, samples ? samples->size() : 0);
  return length;
}

Run run(const Setup &setup, const RunInProgress::Inputs &inputs, const RunOptions &options) {
  RunInProgress run(setup, inputs, options.compensate);
  while (run.next_frame())
    if (options.progress)
      options.progress(std::min(run.done(), run.frames()), run.frames());
  return run.take();
}

} // namespace

RunInProgress::RunInProgress(const Setup &setup, const Inputs &inputs, bool compensate)
    : streams_(streams_of(inputs)), call_(setup, streams_, compensate),
      frames_((longest(inputs) + size_t(setup.frame_len) - 1) / size_t(setup.frame_len)) {
  run_.latency = call_.latency();
  if (inputs.mic)
    run_.sent.reserve(longest(inputs));
  if (inputs.far)
    run_.played.reserve(longest(inputs));
}

Streams RunInProgress::streams_of(const Inputs &inputs) {
  return {.far = reading(inputs.far),
          .mic = reading(inputs.mic),
          .ref = reading(inputs.ref),
          .sent = appending(run_.sent),
          .played = appending(run_.played),
          .frame = [this](const QvVoiceTrace &trace, double seconds) {
            run_.trace.push_back(trace);
            run_.frame_seconds.push_back(seconds);
          }};
}

Run RunInProgress::take() { return std::move(run_); }

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
