/// @file streams.h  A call through the library, frame by frame, of any length.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "call/library.h"

namespace qv::tool {

/// Gives the next samples, fewer than asked for only at the end.
using SampleSource = std::function<size_t(std::span<int16_t> samples)>;
using SampleSink = std::function<void(std::span<const int16_t> samples)>;

/// Where a call comes from and goes to, at the rate of its setup.
struct Streams {
  SampleSource far = {};             ///< with it the receive path runs
  SampleSource mic = {};             ///< with it the transmit path runs
  SampleSource ref = {};             ///< without it the receive output is the echo reference
  SampleSink sent = {}, played = {}; ///< outputs, as long as the longest input together; empty: nobody listens
  std::function<void(const QvVoiceTrace &trace, double seconds)> frame = {}; ///< after each; time that the library took
};

/// Such a call under way, from a fresh initialisation. The shorter input is continued with zeros, the last frame filled
/// up with zeros.
class StreamedCall {
public:
  /// @param setup,streams  are not kept in copy
  /// @param compensate     takes the library's latency out of the outputs; their length stays
  StreamedCall(const Setup &setup, const Streams &streams, bool compensate);

  bool next_frame();                           ///< false, and nothing done, when the call is over
  Latency latency() const { return latency_; } ///< as configured, compensated or not

private:
  /// An input, continued with zeros.
  class Input {
  public:
    Input(const SampleSource &source, size_t frame_len) : frame_(frame_len), source_(source), ended_(!source) {}

    void next();
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
    void pass_on(size_t length);

  private:
    std::vector<int16_t> frame_;
    const SampleSink &sink_;
    std::ptrdiff_t place_; ///< of the frame's first sample in the input
  };

  const Streams &streams_;
  Library library_;
  size_t frame_len_;
  Latency latency_;
  int rx_shift_, tx_shift_; ///< samples that are taken out
  Input far_, mic_, ref_;
  Output played_, sent_;
  size_t at_ = 0; ///< samples, the next frame's first
};

} // namespace qv::tool
