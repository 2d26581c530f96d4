/// @file capture.h  The capture path's samples through a call: frames, positions, what is heard of the reference.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "qvvoice/call.h"

namespace qv::gst {

/// What happened in a frame that an application may want to know.
struct Happening {
  bool converged = false, delay_moved = false;          ///< of the echo canceller
  bool reference_lost = false, reference_found = false; ///< half a second without it, or the first samples of it
};

/// Cuts a stream into frames. Output is in step with the input: what leaves at a position has entered there, so the
/// call's latency is left out at the beginning and fetched at the end, and as many samples leave as have entered.
class Capture {
public:
  /// Fills a frame of the reference. @param at  its position @return samples that are known
  using Reference = std::function<size_t(int64_t at, std::span<int16_t> frame)>;
  using Sink = std::function<bool(int64_t at, std::span<const int16_t> samples)>; ///< false: stop
  using Listener = std::function<void(const Happening &)>;

  Capture(Reference reference, Sink sink, Listener listener);

  /// @param words  [500] @return a QvVoiceStatus
  int32_t open(int rate, int frame_length, uint32_t noise_seed, const int16_t *words);
  void close() { call_.reset(); }
  qv_call *call() const { return call_.get(); }
  int rate() const { return rate_; }                 ///< Hz; 0 before open()
  int frame_length() const { return frame_length_; } ///< samples
  int latency() const;                               ///< samples that the call needs ahead

  bool started() const { return started_; }
  int64_t position() const { return at_ + filled_; } ///< of the next sample; once started
  /// The next sample lies here. Once started only after drain() or forget().
  void start(int64_t at);
  bool write(std::span<const int16_t> samples); ///< false: the sink has stopped
  bool silence(int64_t samples);                ///< the same for silence
  bool drain();                                 ///< what has entered leaves; the next stream starts anew
  void forget() { started_ = false; }           ///< what has entered and not left is lost

  uint64_t reference_known() const { return known_; }     ///< samples of it, since open()
  uint64_t reference_missing() const { return missing_; } ///< likewise

private:
  bool frame(int64_t end = INT64_MAX); ///< @param end  nothing from there on leaves
  void note(size_t known);

  struct Destroy {
    void operator()(qv_call *call) const { qv_call_destroy(call); }
  };
  std::unique_ptr<qv_call, Destroy> call_;
  Reference reference_;
  Sink sink_;
  Listener listener_;
  int rate_ = 0, frame_length_ = 0;
  int16_t mic_[320] = {}, ref_[320] = {}, out_[320] = {}; ///< [frame_length]

  bool started_ = false;
  int64_t at_ = 0;     ///< position of the frame at hand
  int filled_ = 0;     ///< samples of it
  int skip_ = 0;       ///< samples of the output that lie before the beginning
  int64_t out_at_ = 0; ///< position of the next sample that leaves

  std::atomic<uint64_t> known_ = 0, missing_ = 0;
  int silent_samples_ = 0; ///< since the reference was last known
  bool heard_ = false, converged_ = false;
  int echo_delay_ = 0; ///< samples, as last told
};

} // namespace qv::gst
