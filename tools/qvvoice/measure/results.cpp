#include "measure/results.h"

namespace qv::tool::measure {

const char *text_of(Gap gap) {
  switch (gap) {
  case Gap::unknown:
    return "the truth that it needs is not known";
  case Gap::absent:
    return "nothing in the recording shows it";
  case Gap::never:
    return "not reached";
  }
  return "";
}

const std::vector<Measure> &measures() {
  using R = Results;
  // clang-format off
  static const std::vector<Measure> all = {
      {"erle_far_db", "dB", 1, 1, &R::erle_far_db, "echo reduction while the far end talks alone", "ERLE dB"},
      {"erle_first_db", "dB", 1, 1, &R::erle_first_db, "the same by quarter seconds, mean of those in the first 3 s", nullptr},
      {"erle_settled_db", "dB", 1, 1, &R::erle_settled_db, "the same by quarter seconds, mean of those from 3 s on", "settled dB"},
      {"erle_linear_db", "dB", 1, 1, &R::erle_linear_db, "of the adaptive filter alone, median of its frames", "linear dB"},
      {"erle_double_db", "dB", 1, 1, &R::erle_double_db, "echo reduction while both talk, at least this much", nullptr},
      {"erle_heard_db", "dB", 1, 1, &R::erle_heard_db, "microphone over output while the far end is heard, whoever else talks", nullptr},
      {"time_to_20_db_s", "s", 2, -1, &R::time_to_20_db_s, "far-end talk until the echo is 20 dB down", "20 dB s"},
      {"residual_echo_dbfs", "dBFS", 1, -1, &R::residual_echo_dbfs, "level of the output while the far end talks alone", "left dBFS"},
      {"echo_bursts_percent", "%", 1, -1, &R::echo_bursts_percent, "quarter seconds in which echo gets through, from 3 s on", "bursts %"},
      {"echo_reduction_db", "dB", 1, 1, &R::echo_reduction_db, "echo over what the output has beyond its background, quarter seconds from 3 s on", "echo dB"},
      {"echo_reduction_first_db", "dB", 1, 1, &R::echo_reduction_first_db, "the same in the first 3 s", nullptr},
      {"echo_reduction_limit_db", "dB", 1, 0, &R::echo_reduction_limit_db, "the most that the background lets one measure of it", nullptr},
      {"residual_over_background_db", "dB", 1, -1, &R::residual_over_background_db, "what the output has beyond its background over the background, from 3 s on", "over bg dB"},
      {"erle_after_change_db", "dB", 1, 1, &R::erle_after_change_db, "echo reduction in the 3 s of far-end talk after changes of path, delay or streams", "after dB"},
      {"echo_reduction_after_change_db", "dB", 1, 1, &R::echo_reduction_after_change_db, "the same with the output's background taken out", nullptr},
      {"path_recovery_s", "s", 2, -1, &R::path_recovery_s, "far-end talk from a change of the echo path to 20 dB again, worst", "again s"},
      {"delay_recovery_s", "s", 2, -1, &R::delay_recovery_s, "from a delay jump until the echo is in reach again, worst", nullptr},
      {"delay_true_ms", "ms", 1, 0, &R::delay_true_ms, "true delay at the end", nullptr},
      {"delay_found_ms", "ms", 1, 0, &R::delay_found_ms, "delay that the library works with at the end", nullptr},
      {"delay_heard_ms", "ms", 1, 0, &R::delay_heard_ms, "delay by cross-correlation of microphone and reference, median", nullptr},
      {"delay_found_percent", "%", 1, 1, &R::delay_found_percent, "far-end talk from 2 s on with the delay found within half a frame", nullptr},
      {"delay_in_reach_percent", "%", 1, 1, &R::delay_in_reach_percent, "far-end talk whose echo lies within the adaptive filter", "reach %"},
      {"near_level_db", "dB", 1, 0, &R::near_level_db, "near end alone: change of its level, AGC gain taken out", "near dB"},
      {"near_level_sent_db", "dB", 1, 0, &R::near_level_sent_db, "near end alone: change of its level as sent", nullptr},
      {"seg_snr_near_db", "dB", 1, 1, &R::seg_snr_near_db, "near end alone: segmental SNR", nullptr},
      {"mic_seg_snr_near_db", "dB", 1, 0, &R::mic_seg_snr_near_db, "the same of the microphone", nullptr},
      {"seg_snr_double_db", "dB", 1, 1, &R::seg_snr_double_db, "double talk: segmental SNR", nullptr},
      {"mic_seg_snr_double_db", "dB", 1, 0, &R::mic_seg_snr_double_db, "the same of the microphone", nullptr},
      {"si_sdr_near_db", "dB", 1, 1, &R::si_sdr_near_db, "near end alone: SI-SDR", "near SDR"},
      {"mic_si_sdr_near_db", "dB", 1, 0, &R::mic_si_sdr_near_db, "the same of the microphone", nullptr},
      {"si_sdr_double_db", "dB", 1, 1, &R::si_sdr_double_db, "double talk: SI-SDR", "both SDR"},
      {"mic_si_sdr_double_db", "dB", 1, 0, &R::mic_si_sdr_double_db, "the same of the microphone", nullptr},
      {"estoi_near", "", 3, 1, &R::estoi_near, "near end alone: intelligibility (ESTOI)", nullptr},
      {"mic_estoi_near", "", 3, 0, &R::mic_estoi_near, "the same of the microphone", nullptr},
      {"estoi_double", "", 3, 1, &R::estoi_double, "double talk: intelligibility (ESTOI)", "both ESTOI"},
      {"mic_estoi_double", "", 3, 0, &R::mic_estoi_double, "the same of the microphone", nullptr},
      {"estoi_gain_double", "", 3, 1, &R::estoi_gain_double, "double talk: ESTOI, output less microphone", nullptr},
      {"onsets_lost_percent", "%", 1, -1, &R::onsets_lost_percent, "near-end word onsets lost", "onsets %"},
      {"near_lost_percent", "%", 1, -1, &R::near_lost_percent, "strong near-end frames lost in double talk", "lost %"},
      {"near_lost_alone_percent", "%", 1, -1, &R::near_lost_alone_percent, "the same of the near end alone", nullptr},
      {"noise_attenuation_db", "dB", 1, 0, &R::noise_attenuation_db, "background noise, microphone over output, while nobody talks", "noise dB"},
      {"output_noise_dbfs", "dBFS", 1, 0, &R::output_noise_dbfs, "level of the output while nobody talks", nullptr},
      {"digital_silence_percent", "%", 1, 0, &R::digital_silence_percent, "output frames in which every sample is 0", "zeros %"},
      {"background_step_db", "dB", 1, 0, &R::background_step_db, "output while the far end talks alone over output while nobody talks", "step dB"},
      {"background_step_median_db", "dB", 1, 0, &R::background_step_median_db, "the same, of the middle quarter second by level: without bursts of echo", nullptr},
      {"background_band_step_db", "dB", 1, -1, &R::background_band_step_db, "the largest such step of a third octave, up or down", "band step"},
      {"noise_step_db", "dB", 1, 0, &R::noise_step_db, "the same step of the room's noise itself", nullptr},
      {"noise_band_step_db", "dB", 1, 0, &R::noise_band_step_db, "the largest such step of a third octave of it", nullptr},
      {"noise_snr_db", "dB", 1, 0, &R::noise_snr_db, "active level of the near end, else of the echo, over the room's noise", nullptr},
      {"mic_level_dbfs", "dBFS", 1, 0, &R::mic_level_dbfs, "microphone: active level", nullptr},
      {"ref_level_dbfs", "dBFS", 1, 0, &R::ref_level_dbfs, "reference: active level", nullptr},
      {"out_level_dbfs", "dBFS", 1, 0, &R::out_level_dbfs, "output: active level", nullptr},
      {"agc_gain_db", "dB", 1, 0, &R::agc_gain_db, "mean gain of the transmit AGC while the near end talks, else throughout", nullptr},
      {"mic_clipped_percent", "%", 3, -1, &R::mic_clipped_percent, "microphone samples at full scale", nullptr},
      {"ref_clipped_percent", "%", 3, -1, &R::ref_clipped_percent, "reference samples at full scale", nullptr},
      {"out_clipped_percent", "%", 3, -1, &R::out_clipped_percent, "output samples at full scale", nullptr},
      {"real_time_factor", "", 4, -1, &R::real_time_factor, "time taken over time played, transmit path", "RTF"},
      {"worst_frame_percent", "%", 2, -1, &R::worst_frame_percent, "longest frame call over the frame's length", nullptr},
  };
  // clang-format on
  return all;
}

bool is_speed(const Measure &measure) {
  return measure.value == &Results::real_time_factor || measure.value == &Results::worst_frame_percent;
}

} // namespace qv::tool::measure
