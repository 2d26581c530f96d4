/// @file frame_report.h  What the echo canceller's stages did in their last frame, for the trace.
///
/// The state records hold what the signal path needs; events that leave no trace in them are noted
/// here, by the call that runs the frames.
#pragma once

#include <cstdint>

namespace qv::aec {

struct FrameReport {
  bool delay_changed = false;
  bool foreground_refreshed = false;
  bool background_reset = false;
  bool filter_reset = false;
  bool muted = false;
  float suppressor_gain = 1.f; ///< mean over the bins, before noise reduction
  // Energies of one frame, 16-bit scale. The output lags the input by a frame.
  int64_t mic_energy = 0;
  int64_t mic_energy_prev = 0;
  int64_t linear_energy = 0;
  int64_t out_energy = 0;
};

} // namespace qv::aec
