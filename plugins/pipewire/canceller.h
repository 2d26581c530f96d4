/// @file canceller.h  What stands between the graph's blocks, channels and rate and the frames of a call.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "para/presets.h"
#include "qvvoice/stream.h"
#include "rate_converter.h"

namespace qv::pipewire {

/// What `aec.args` says.
struct Settings {
  int rate = 16000;                                                 ///< of the call, Hz
  int frame_ms = 20;                                                ///< 16 or 20
  std::string parameters = std::string(tool::para::default_family); ///< a family of presets, or a path (with a slash)
};

/// The transmit direction of a call for blocks of any length, at any rate, with any number of channels.
class Canceller {
public:
  /// @param graph_rate  Hz, 8000 to 384000 in steps of 25: a filter of a few hundred phases at most
  /// @param channels    of microphone, reference and output
  /// @throws std::invalid_argument  says what is wrong and what would be right; std::bad_alloc
  Canceller(const Settings &settings, int graph_rate, int channels);

  /// Channels are averaged into one before, and all get the same after. Nothing is allocated.
  /// @param mic,ref  [channels][count]; of a null channel the rest alone is taken
  /// @param out      [channels][count] may be `mic`
  void run(const float *const mic[], const float *const ref[], float *const out[], int count) noexcept;

  /// Lets the next block begin with nothing waiting, as after a pause. From any thread; what was learnt stays.
  void restart() noexcept { restart_ = true; }

  /// Input to output, in seconds.
  double delay() const;

private:
  struct Destroy {
    void operator()(qv_call *call) const { qv_call_destroy(call); }
    void operator()(qv_stream *stream) const { qv_stream_destroy(stream); }
  };

  void forget() noexcept;
  void run_chunk(int from, const float *const mic[], const float *const ref[], float *const out[], int count) noexcept;
  const float *mix(const float *const signal[], int from, int count) noexcept;

  int rate_, channels_;
  RateConverter mic_down_, ref_down_, up_;
  std::unique_ptr<qv_call, Destroy> call_;
  std::unique_ptr<qv_stream, Destroy> stream_;
  std::vector<float> mixed_;     ///< a chunk at the graph's rate
  std::vector<float> mic_, ref_; ///< the same at the call's rate
  std::vector<float> ready_;     ///< at the graph's rate again: the chunk and what the last one left over
  int left_ = 0;                 ///< samples of it that wait
  std::atomic<bool> restart_{false};
};

} // namespace qv::pipewire
