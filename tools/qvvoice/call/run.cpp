#include "call/run.h"

#include <algorithm>
#include <chrono>
#include <span>
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

/// Fills a frame with the samples from `begin` on, zeros where there are none.
void take_frame(const Samples *samples, size_t begin, Samples &frame) {
  const std::span<const int16_t> all = samples ? std::span(*samples) : std::span<const int16_t>();
  const auto rest = all.subspan(std::min(begin, all.size()));
  const auto filled = std::ranges::copy(rest.first(std::min(rest.size(), frame.size())), frame.begin()).out;
  std::fill(filled, frame.end(), 0);
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
  Samples far(frame), mic(frame), ref(frame);
  Samples played(in.far ? frames * frame : 0), sent(in.mic ? frames * frame : 0);
  for (size_t i = 0; i < frames; ++i) {
    const size_t at = i * frame;
    take_frame(in.far, at, far);
    take_frame(in.mic, at, mic);
    take_frame(in.ref, at, ref);
    const auto start = Clock::now();
    if (in.far)
      library.rx(far.data(), &played[at]);
    if (in.mic)
      library.tx(mic.data(), in.ref ? ref.data() : &played[at], &sent[at]);
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
