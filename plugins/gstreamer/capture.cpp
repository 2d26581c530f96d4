#include "capture.h"

#include <algorithm>
#include <cstdlib>

namespace qv::gst {

Capture::Capture(Reference reference, Sink sink, Listener listener)
    : reference_(std::move(reference)), sink_(std::move(sink)), listener_(std::move(listener)) {}

int32_t Capture::open(int rate, int frame_length, uint32_t noise_seed, const int16_t *words) {
  const qv_call_config config{sizeof config, rate, frame_length, noise_seed};
  qv_call *made = nullptr;
  const int32_t status = qv_call_create(&config, words, &made);
  if (status != QV_VOICE_OK)
    return status;
  call_.reset(made);
  rate_ = rate;
  frame_length_ = frame_length;
  known_ = missing_ = 0;
  silent_samples_ = 0;
  heard_ = converged_ = started_ = false;
  echo_delay_ = 0;
  return status;
}

int Capture::latency() const {
  int32_t tx = 0, rx = 0;
  qv_call_latency(call_.get(), &tx, &rx);
  return tx;
}

void Capture::start(int64_t at) {
  started_ = true;
  at_ = out_at_ = at;
  filled_ = 0;
  skip_ = latency();
}

bool Capture::write(std::span<const int16_t> samples) {
  while (!samples.empty()) {
    const size_t count = std::min(samples.size(), size_t(frame_length_ - filled_));
    std::copy_n(samples.begin(), count, mic_ + filled_);
    filled_ += int(count);
    samples = samples.subspan(count);
    if (filled_ == frame_length_ && !frame())
      return false;
  }
  return true;
}

bool Capture::silence(int64_t samples) {
  static constexpr int16_t zeros[320] = {};
  for (; samples > 0; samples -= frame_length_)
    if (!write({zeros, size_t(std::min<int64_t>(samples, frame_length_))}))
      return false;
  return true;
}

bool Capture::drain() {
  const int64_t end = position();
  bool goes_on = true;
  while (started_ && goes_on && out_at_ < end) {
    std::fill(mic_ + filled_, mic_ + frame_length_, int16_t(0));
    goes_on = frame(end);
  }
  started_ = false;
  return goes_on;
}

bool Capture::frame(int64_t end) {
  const size_t known = reference_(at_, {ref_, size_t(frame_length_)});
  qv_call_transmit(call_.get(), mic_, ref_, out_);
  note(known);
  at_ += frame_length_;
  filled_ = 0;
  const int skipped = std::min(skip_, frame_length_);
  skip_ -= skipped;
  const int64_t at = out_at_, count = std::min<int64_t>(frame_length_ - skipped, end - at);
  out_at_ += count;
  return count == 0 || sink_(at, {out_ + skipped, size_t(count)});
}

/// A talker's pause is not a lost reference: what is played then is known as well, and silent.
void Capture::note(size_t known) {
  Happening happening;
  known_ += known;
  missing_ += size_t(frame_length_) - known;
  if (known > 0) {
    happening.reference_found = !heard_;
    heard_ = true;
    silent_samples_ = 0;
  } else if (heard_ && (silent_samples_ += frame_length_) >= rate_ / 2) {
    happening.reference_lost = true;
    heard_ = false;
  }
  QvVoiceTrace trace{};
  trace.size = sizeof trace;
  qv_call_trace(call_.get(), &trace);
  happening.converged = trace.filter_adapted && !converged_;
  converged_ = trace.filter_adapted;
  const bool placed = !trace.state_space || trace.filter_adapted;
  happening.delay_moved = placed && std::abs(trace.echo_delay - echo_delay_) >= frame_length_ / 2;
  if (happening.delay_moved)
    echo_delay_ = trace.echo_delay;
  listener_(happening);
}

} // namespace qv::gst
