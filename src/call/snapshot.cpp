#include "call/snapshot.h"

#include <algorithm>
#include <cmath>

#include "qvvoice/dsp/vector.h"

namespace qv {

namespace {

constexpr float no_level_db = -100.f;

float level_ratio_db(double numerator, double denominator) {
  return float(10.0 * std::log10((numerator + 1.0) / (denominator + 1.0)));
}

/// Speech presence of a band from its gains: gain = floor^(1 - p) * present^p.
float band_presence(float gain, float gain_present, float gain_floor) {
  if (gain_present == gain_floor || !(gain > 0) || !(gain_present > 0))
    return 0;
  const float p = std::log(gain / gain_floor) / std::log(gain_present / gain_floor);
  return std::clamp(p, 0.f, 1.f);
}

QvVoiceNoiseTrace noise_trace(const NoiseSnapshot &snapshot) {
  if (snapshot.bands == 0)
    return {no_level_db, 1.f, 1.f};
  const auto bands = float(snapshot.bands);
  float gain = 0, presence = 0;
  for (int32_t b = 0; b < snapshot.bands; ++b) {
    gain += snapshot.gain[b];
    presence += band_presence(snapshot.gain[b], snapshot.gain_present[b], snapshot.gain_floor);
  }
  const float power = snapshot.noise_power;
  return {power > 0 ? 10.f * std::log10(power / bands) : no_level_db, gain / bands, presence / bands};
}

void fill_echo_canceller(const TransmitSnapshot &tx, QvVoiceTrace &trace) {
  const aec::FrameReport &report = tx.report;
  trace.echo_delay = std::clamp(tx.echo_delay, 0, AEC_MAX_DELAY);
  trace.delay_changed = report.delay_changed;
  trace.leakage = tx.leakage;
  trace.filter_adapted = tx.filter_adapted;
  trace.foreground_refreshed = report.foreground_refreshed;
  trace.background_reset = report.background_reset;
  trace.filter_reset = report.filter_reset;
  trace.linear_erle_db = level_ratio_db(double(report.mic_energy), double(report.linear_energy));
  trace.erle_db = level_ratio_db(double(report.mic_energy_prev), double(report.out_energy));
  trace.suppressor_gain = report.suppressor_gain;
  trace.muted = report.muted;
}

void fill_state_space(const state_space::FrameReport &report, QvVoiceTrace &trace) {
  constexpr float adapted = 0.5f; // share of the microphone that the filter has come to explain: 3 dB
  trace.state_space = 1;
  trace.echo_delay = report.echo_at;
  trace.talk_state = !report.far_heard ? 0 : report.single_talk ? 1 : 2;
  trace.filter_adapted = report.explained > adapted;
  trace.linear_erle_db = level_ratio_db(double(report.mic_energy), double(report.linear_energy));
  trace.erle_db = level_ratio_db(double(report.mic_energy_prev), double(report.out_energy));
  trace.suppressor_gain = report.gain;
  trace.muted = report.single_talk;
  trace.comfort_noise = report.single_talk;
  trace.filter_delay = report.filter_delay;
  trace.filter_length = report.filter_length;
  trace.path_changed = report.path_changed;
  trace.single_talk = report.single_talk;
  trace.drift_ppm = report.drift_ppm;
  trace.explained = report.explained;
  const float residual = report.residual_power;
  trace.expected_residual_db = residual > 0 ? std::max(10.f * std::log10(residual), no_level_db) : no_level_db;
}

} // namespace

void take_snapshot(const AnrState &state, NoiseSnapshot &snapshot) {
  snapshot.bands = state.swAnrEnable == 0 ? 0 : state.swBandNum;
  if (snapshot.bands == 0)
    return;
  const AnrEnhance &enh = state.stEnhance;
  snapshot.gain_floor = enh.fGainMin;
  snapshot.noise_power = VOICE_VecSum(enh.pfNoiseBand, snapshot.bands);
  std::copy_n(enh.pfGain, snapshot.bands, snapshot.gain);
  std::copy_n(enh.pfGainH1, snapshot.bands, snapshot.gain_present);
}

QvVoiceTrace make_trace(const TransmitSnapshot &tx, const ReceiveSnapshot &rx) {
  QvVoiceTrace trace{};
  trace.tx_frame = tx.frames;
  trace.rx_frame = rx.frames;
  trace.suppressor_gain = 1.f;
  trace.talk_state = tx.talk_state;
  trace.comfort_noise = tx.comfort_noise;
  if (tx.echo_cancelled && tx.has_state_space)
    fill_state_space(tx.state_space, trace);
  else if (tx.echo_cancelled)
    fill_echo_canceller(tx, trace);
  trace.tx_noise = noise_trace(tx.noise);
  trace.rx_noise = noise_trace(rx.noise);
  trace.tx_agc_gain = tx.agc_gain;
  trace.rx_agc_gain = rx.agc_gain;
  return trace;
}

} // namespace qv
