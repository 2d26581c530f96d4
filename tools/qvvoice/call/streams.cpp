#include "call/streams.h"

#include <algorithm>
#include <chrono>

namespace qv::tool {

void StreamedCall::Input::next() {
  const size_t got = ended_ ? 0 : source_(frame_);
  std::fill(frame_.begin() + std::ptrdiff_t(got), frame_.end(), 0);
  ended_ = got < frame_.size();
  count_ += got;
}

void StreamedCall::Output::pass_on(size_t length) {
  const auto size = std::ptrdiff_t(frame_.size());
  const std::ptrdiff_t begin = std::clamp<std::ptrdiff_t>(-place_, 0, size);
  const std::ptrdiff_t end = std::clamp(std::ptrdiff_t(length) - place_, begin, size);
  if (sink_ && end > begin)
    sink_(std::span(frame_).subspan(size_t(begin), size_t(end - begin)));
  place_ += size;
}

StreamedCall::StreamedCall(const Setup &setup, const Streams &streams, bool compensate)
    : streams_(streams), library_(setup), frame_len_(size_t(setup.frame_len)), latency_(library_.latency()),
      rx_shift_(compensate && streams.far ? latency_.rx : 0), tx_shift_(compensate && streams.mic ? latency_.tx : 0),
      far_(streams.far, frame_len_), mic_(streams.mic, frame_len_), ref_(streams.ref, frame_len_),
      played_(streams.played, rx_shift_, frame_len_), sent_(streams.sent, tx_shift_, frame_len_) {}

bool StreamedCall::next_frame() {
  using Clock = std::chrono::steady_clock;
  size_t length = 0;
  for (Input *input : {&far_, &mic_, &ref_}) {
    input->next();
    length = std::max(length, input->count());
  }
  if (at_ >= length + size_t(std::max(rx_shift_, tx_shift_)))
    return false;
  const auto start = Clock::now();
  if (streams_.far)
    library_.rx(far_.frame(), played_.frame());
  if (streams_.mic)
    library_.tx(mic_.frame(), streams_.ref ? ref_.frame() : played_.frame(), sent_.frame());
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  if (streams_.far)
    played_.pass_on(length);
  if (streams_.mic)
    sent_.pass_on(length);
  if (streams_.frame)
    streams_.frame(library_.trace(), seconds);
  at_ += frame_len_;
  return true;
}

} // namespace qv::tool
