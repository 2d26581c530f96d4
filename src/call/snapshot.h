/// @file snapshot.h  What a frame leaves for the trace: copied in the frame, worked out by the reader.
#pragma once

#include <cstdint>

#include "aec/frame_report.h"
#include "qvvoice/api/process.h"
#include "qvvoice/dsp/filter_bank.h"
#include "qvvoice/qvvoice.h"
#include "state_space/frame_report.h"

namespace qv {

/// One path's noise reducer after a frame; arrays [bands].
struct NoiseSnapshot {
  int32_t bands = 0;     ///< 0 while off, and before the first frame
  float noise_power = 0; ///< sum over the bands
  float gain_floor = 0;
  float gain[QV_MAX_BANDS] = {};
  float gain_present[QV_MAX_BANDS] = {};
};

struct ReceiveSnapshot {
  uint32_t frames = 0; ///< since initialisation
  float agc_gain = 1.f;
  NoiseSnapshot noise;
};

struct TransmitSnapshot {
  uint32_t frames = 0; ///< since initialisation
  float agc_gain = 1.f;
  NoiseSnapshot noise;
  int32_t comfort_noise = 0;
  int32_t talk_state = 0;
  int32_t echo_cancelled = 0; ///< whether the fields below hold anything
  int32_t echo_delay = 0;
  float leakage = 0;
  int32_t filter_adapted = 0;
  aec::FrameReport report;
  int32_t has_state_space = 0; ///< then the next holds in place of the last five
  state_space::FrameReport state_space;
};

void take_snapshot(const AnrState &state, NoiseSnapshot &snapshot);

/// The trace of both paths' last frames; `size` is left at 0.
QvVoiceTrace make_trace(const TransmitSnapshot &tx, const ReceiveSnapshot &rx);

} // namespace qv
