/// @file frame_report.h  What the state-space canceller did in its last frame, for the trace.
#pragma once

#include <cstdint>

namespace qv::state_space {

struct FrameReport {
  bool path_changed = false;
  bool single_talk = false; ///< only the far end is heard: the output is the background
  bool talking = false;     ///< the near end talks
  bool far_heard = false;
  int32_t echo_at = 0;       ///< samples after the reference at which the path has its highest tap
  int32_t filter_delay = 0;  ///< samples of bulk delay in front of the filters
  int32_t filter_length = 0; ///< samples of their partitions
  float drift_ppm = 0;       ///< by which the microphone's clock is faster
  float residual_power = 0;  ///< expected residual echo, mean square
  float explained = 0;       ///< share of the microphone's power that the filter took off, lately
  float gain = 1;            ///< mean over the bins, before noise reduction
  // Energies of one frame; the output lags by a frame.
  int64_t mic_energy = 0, mic_energy_prev = 0, linear_energy = 0, out_energy = 0;
};

} // namespace qv::state_space
