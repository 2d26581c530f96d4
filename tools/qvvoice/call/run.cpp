#include "call/run.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace qv::tool {
namespace {

struct Inputs {
  const Samples *far = nullptr; ///< with it the receive path runs
  const Samples *mic = nullptr; ///< with it the transmit path runs
  const Samples *ref = nullptr; ///< without it the receive output is the echo reference
};

size_t longest(const Inputs &in) {
  size_t length = 0;
  for (const Samples *samples : {in.far, in.mic, in.ref})
    length = std::max(length, samples ? samples->size() : 0);
  return length;
}

Samples padded(const Samples *samples, size_t length) {
  Samples longer = samples ? *samples : Samples();
  longer.resize(length);
  return longer;
}

void trim(Samples &out, int latency, size_t length) {
  out.erase(out.begin(), out.begin() + latency);
  out.resize(length);
}

Run run(const Setup &setup, const Inputs &in, const RunOptions &options) {
  using Clock = std::chrono::steady_clock;
  Library library(setup);
  Run result;
  result.latency = library.latency();
  const int rx_shift = options.compensate && in.far ? result.latency.rx : 0;
  const int tx_shift = options.compensate && in.mic ? result.latency.tx : 0;
  const auto frame = size_t(setup.frame_len);
  const size_t length = longest(in);
  const size_t frames = (length + size_t(std::max(rx_shift, tx_shift)) + frame - 1) / frame;
  const Samples far = padded(in.far, frames * frame), mic = padded(in.mic, frames * frame);
  const Samples ref = padded(in.ref, frames * frame);
  Samples played(frames * frame), sent(frames * frame);
  for (size_t i = 0; i < frames; ++i) {
    const size_t at = i * frame;
    const auto start = Clock::now();
    if (in.far)
      library.rx(&far[at], &played[at]);
    if (in.mic)
      library.tx(&mic[at], in.ref ? &ref[at] : &played[at], &sent[at]);
    result.frame_seconds.push_back(std::chrono::duration<double>(Clock::now() - start).count());
    result.trace.push_back(library.trace());
    if (options.progress)
      options.progress(i + 1, frames);
  }
  if (in.far)
    trim(result.played = std::move(played), rx_shift, length);
  if (in.mic)
    trim(result.sent = std::move(sent), tx_shift, length);
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
