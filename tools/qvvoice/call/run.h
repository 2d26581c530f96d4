/// @file run.h  Whole recordings through the library.
#pragma once

#include <cstdint>
#include <vector>

#include "call/library.h"
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

/// Each starts from a fresh initialisation. The shorter input is continued with zeros, the last frame
/// filled up with zeros.
/// @param mic,ref,far  at the rate of the setup
Run run_tx(const Setup &setup, const Samples &mic, const Samples &ref, const RunOptions &options = {});
Run run_rx(const Setup &setup, const Samples &far, const RunOptions &options = {});

/// The far end through the receive path, whose output, as it comes, is the echo reference.
Run run_both(const Setup &setup, const Samples &far, const Samples &mic, const RunOptions &options = {});

} // namespace qv::tool
