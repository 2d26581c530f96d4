/// @file results.h  What is measured on one recording. docs/measures.md has definitions and sources.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "measure/background.h"
#include "measure/quality.h"
#include "measure/value.h"

namespace qv::tool::measure {

/// A quarter of a second of the recording.
struct Quarter {
  double time;                 ///< s, its beginning
  double mic_power, out_power; ///< mean square; of the output without AGC gain, not below the rounding noise
  std::optional<double> erle;  ///< dB; nothing unless the far end is heard in at least half of it
  std::optional<Talk> talk;    ///< of most of its frames; nothing when unknown
};

/// What follows on a change.
struct Recovery {
  double time;      ///< s
  const char *kind; ///< "delay", "path", "both", "gap"; "muted", "no_reference": such an interval is over
  double jump;      ///< ms, of the delay
  Value seconds;    ///< of far-end single talk until 20 dB again
  Value erle;       ///< dB, mean over the quarters of the first 3 s of far-end single talk, until the next change
};

struct Results {
  // Echo.
  Value erle_far_db, erle_first_db, erle_settled_db, erle_linear_db, erle_double_db, erle_heard_db;
  Value time_to_20_db_s, residual_echo_dbfs, echo_bursts_percent;
  Value echo_reduction_first_db, echo_reduction_db, echo_reduction_limit_db, residual_over_background_db;
  Value erle_after_change_db, echo_reduction_after_change_db, path_recovery_s, delay_recovery_s;
  // Delay.
  Value delay_true_ms, delay_found_ms, delay_heard_ms, delay_found_percent, delay_in_reach_percent;
  // Near end.
  Value near_level_db, near_level_sent_db;
  Value seg_snr_near_db, seg_snr_double_db, si_sdr_near_db, si_sdr_double_db, estoi_near, estoi_double;
  Value mic_seg_snr_near_db, mic_seg_snr_double_db, mic_si_sdr_near_db, mic_si_sdr_double_db, mic_estoi_near,
      mic_estoi_double, estoi_gain_double;
  Value onsets_lost_percent, near_lost_percent, near_lost_alone_percent;
  // Noise.
  Value noise_attenuation_db, output_noise_dbfs, digital_silence_percent;
  Value background_step_db, background_step_median_db, background_band_step_db, noise_step_db, noise_band_step_db,
      noise_snr_db;
  // Levels.
  Value mic_level_dbfs, ref_level_dbfs, out_level_dbfs, agc_gain_db;
  Value mic_clipped_percent, ref_clipped_percent, out_clipped_percent;
  // Speed.
  Value real_time_factor, worst_frame_percent;

  std::vector<Quarter> quarters;
  std::vector<Recovery> recoveries; ///< of every change that the truth knows, in order of time
};

/// One measure of the table that every print-out is made from.
struct Measure {
  const char *key;
  const char *unit;
  int decimals;
  int better; ///< 1 higher, -1 lower, 0 neither
  Value Results::*value;
  const char *meaning; ///< one line
  const char *column;  ///< heading in the table of a set; null: not in it
};

const std::vector<Measure> &measures();

/// Whether it depends on the machine.
bool is_speed(const Measure &measure);

/// What follows from a recording alone: the same for every output that is measured on it.
struct Known : Parts {
  const Subject &subject;
  std::vector<double> mic; ///< powers of frames of 10 ms
  std::optional<std::vector<Talk>> talk;
  std::optional<DelaySummary> delay; ///< of the microphone behind the reference, by cross-correlation
  std::optional<std::vector<bool>> far_heard;
  std::optional<double> mic_level, ref_level, near_level, echo_level; ///< active, dBov
  Quality mic_near, mic_double;
  BackgroundFrames background_frames; ///< empty when it is not known who talks when
  BackgroundStep noise_step;          ///< of noise.wav

  /// @param progress  of the search for the delay, which takes by far the longest
  Known(const Subject &subject, const ProgressFn &progress = {});
};

Results measure(const Known &known, const Output &output);

} // namespace qv::tool::measure
