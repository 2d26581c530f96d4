/// @file run.h  Whole recordings through the library.
#pragma once

#include <cstdint>
#include <vector>

#include "call/streams.h"
#include "support/progress_fn.h"

namespace qv::tool {

using Samples = std::vector<int16_t>;

struct RunOptions {
  bool compensate = false; ///< takes the library's latency out of the results; their length stays
  ProgressFn progress;     ///< called with frames
};

struct Run {
  Samples sent;                      ///< transmit output, as long as the longest input; empty after run_rx
  Samples played;                    ///< receive output, likewise; empty after run_tx
  std::vector<QvVoiceTrace> trace;   ///< [frames]
  std::vector<double> frame_seconds; ///< [frames] time that the library took, both paths together
  Latency latency;                   ///< as configured, compensated or not
};

/// A run under way. Neither moved nor copied.
class RunInProgress {
public:
  struct Inputs {
    const Samples *far = nullptr; ///< with it the receive path runs
    const Samples *mic = nullptr; ///< with it the transmit path runs
    const Samples *ref = nullptr; ///< without it the receive output is the echo reference
  };

  /// @param setup,inputs  their samples are not kept in copy
  RunInProgress(const Setup &setup, const Inputs &inputs, bool compensate);
  RunInProgress(const RunInProgress &) = delete;
  RunInProgress &operator=(const RunInProgress &) = delete;

  bool next_frame() { return call_.next_frame(); } ///< false when the run is through
  size_t frames() const { return frames_; }        ///< of the inputs; the latency that is taken out may need one more
  size_t done() const { return run_.trace.size(); }
  Run take(); ///< what has been run

private:
  Streams streams_of(const Inputs &inputs);

  Run run_;
  Streams streams_;
  StreamedCall call_;
  size_t frames_;
};

/// Each starts from a fresh initialisation. The shorter input is continued with zeros, the last frame
/// filled up with zeros.
/// @param mic,ref,far  at the rate of the setup
Run run_tx(const Setup &setup, const Samples &mic, const Samples &ref, const RunOptions &options = {});
Run run_rx(const Setup &setup, const Samples &far, const RunOptions &options = {});

/// The far end through the receive path, whose output, as it comes, is the echo reference.
Run run_both(const Setup &setup, const Samples &far, const Samples &mic, const RunOptions &options = {});

} // namespace qv::tool
