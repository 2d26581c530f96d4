#include "call/streams.h"

#include <algorithm>
#include <chrono>
#include <vector>

namespace qv::tool {
namespace {

/// An input, continued with zeros.
class Input {
public:
  Input(const SampleSource &source, size_t frame_len) : frame_(frame_len), source_(source), ended_(!source) {}

  void next() {
    const size_t got = ended_ ? 0 : source_(frame_);
    std::fill(frame_.begin() + std::ptrdiff_t(got), frame_.end(), 0);
    ended_ = got < frame_.size();
    count_ += got;
  }
  size_t count() const { return count_; } ///< samples, so far
  const int16_t *frame() const { return frame_.data(); }

private:
  std::vector<int16_t> frame_;
  const SampleSource &source_;
  bool ended_;
  size_t count_ = 0;
};

/// An output without what precedes the input's first sample and what follows its last.
class Output {
public:
  Output(const SampleSink &sink, int latency, size_t frame_len)
      : frame_(frame_len), sink_(sink), place_(-std::ptrdiff_t(latency)) {}

  int16_t *frame() { return frame_.data(); }

  /// @param length  of the input, as far as it is known: all of it, or the end of the present frame
  void pass_on(size_t length) {
    const auto size = std::ptrdiff_t(frame_.size());
    const std::ptrdiff_t begin = std::clamp<std::ptrdiff_t>(-place_, 0, size);
    const std::ptrdiff_t end = std::clamp(std::ptrdiff_t(length) - place_, begin, size);
    if (sink_ && end > begin)
      sink_(std::span(frame_).subspan(size_t(begin), size_t(end - begin)));
    place_ += size;
  }

private:
  std::vector<int16_t> frame_;
  const SampleSink &sink_;
  std::ptrdiff_t place_; ///< of the frame's first sample in the input
};

} // namespace

Latency run_streams(const Setup &setup, const Streams &streams, bool compensate) {
  using Clock = std::chrono::steady_clock;
  Library library(setup);
  const auto frame_len = size_t(setup.frame_len);
  const Latency latency = library.latency();
  const int rx_shift = compensate && streams.far ? latency.rx : 0;
  const int tx_shift = compensate && streams.mic ? latency.tx : 0;
  const auto shift = size_t(std::max(rx_shift, tx_shift));
  Input far(streams.far, frame_len), mic(streams.mic, frame_len), ref(streams.ref, frame_len);
  Output played(streams.played, rx_shift, frame_len), sent(streams.sent, tx_shift, frame_len);
  for (size_t at = 0;; at += frame_len) {
    size_t length = 0;
    for (Input *input : {&far, &mic, &ref}) {
      input->next();
      length = std::max(length, input->count());
    }
    if (at >= length + shift)
      return latency;
    const auto start = Clock::now();
    if (streams.far)
      library.rx(far.frame(), played.frame());
    if (streams.mic)
      library.tx(mic.frame(), streams.ref ? ref.frame() : played.frame(), sent.frame());
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (streams.far)
      played.pass_on(length);
    if (streams.mic)
      sent.pass_on(length);
    if (streams.frame)
      streams.frame(library.trace(), seconds);
  }
}

} // namespace qv::tool
