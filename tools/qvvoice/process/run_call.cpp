#include "process/run_call.h"

#include <algorithm>

#include "call/trace_table.h"
#include "process/hints.h"
#include "support/progress.h"

namespace qv::tool::process {
namespace {

SampleSource reading(std::optional<Input> &input, Opening *opening = nullptr) {
  if (!input)
    return {};
  return [&input, opening](std::span<int16_t> samples) {
    const size_t got = input->read(samples);
    if (opening)
      opening->add(samples.first(got));
    return got;
  };
}

SampleSink writing(std::optional<Result> &result) {
  if (!result)
    return {};
  return [&result](std::span<const int16_t> samples) { result->write(samples); };
}

} // namespace

void Results::commit() {
  for (auto *result : {&sent, &played})
    if (*result) {
      (*result)->finish();
      (*result)->commit();
    }
  if (trace)
    trace->commit();
}

Account run_call(const Setup &setup, Inputs &inputs, Results &results, bool compensate) {
  const double frame_seconds = double(setup.frame_len) / setup.rate;
  const auto stated_seconds = size_t(inputs.stated_seconds());
  Progress bar("processing", " s");
  Opening mic(setup.rate), ref(setup.rate);
  Account account;
  if (results.trace)
    results.trace->write(trace_names());
  const auto count_frame = [&](const QvVoiceTrace &trace, double seconds) {
    const double time = double(account.frames++) * frame_seconds;
    account.busy_seconds += seconds;
    account.worst_seconds = std::max(account.worst_seconds, seconds);
    if (results.trace)
      results.trace->write(trace_line(trace, time));
    bar(size_t(time), stated_seconds);
  };
  const Streams streams{.far = reading(inputs.far),
                        .mic = reading(inputs.mic, &mic),
                        .ref = reading(inputs.ref, &ref),
                        .sent = writing(results.sent),
                        .played = writing(results.played),
                        .frame = count_frame};
  StreamedCall call(setup, streams, compensate);
  while (call.next_frame()) {
  }
  account.latency = call.latency();
  if (inputs.mic && inputs.ref)
    account.hints = hints(*inputs.mic, mic, *inputs.ref, ref);
  return account;
}

} // namespace qv::tool::process
