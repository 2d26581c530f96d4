/// @file frame_report.h  What the echo canceller's stages did in their last frame, for the trace.
///
/// The state records hold what the signal path needs; events that leave no trace in them are noted
/// here. One per process, as there is one echo canceller per process.
#pragma once

#include <cstdint>

#include "qvvoice/dsp/filter_bank.h"

namespace qv::aec {

struct FrameReport {
  bool delay_changed = false;
  bool foreground_refreshed = false;
  bool background_reset = false;
  bool filter_reset = false;
  bool muted = false;
  float bin_gain[QV_MAX_FRAME] = {}; ///< [N] of the suppressor, before noise reduction; the trace takes the mean
  // Energies of one frame, 16-bit scale. The output lags the input by a frame.
  int64_t mic_energy = 0;
  int64_t mic_energy_prev = 0;
  int64_t linear_energy = 0;
  int64_t out_energy = 0;
};

extern FrameReport last_frame;

} // namespace qv::aec
