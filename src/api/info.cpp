// What an integrator asks: version, status text, latency, trace.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "aec/frame_report.h"
#include "api/pipeline.h"
#include "qvvoice/api/process.h"
#include "qvvoice/dsp/vector.h"
#include "qvvoice/qvvoice.h"

namespace {

using qv::api::session;

constexpr float no_level_db = -100.f;

/// Samples by which an equaliser delays.
int32_t delay_of(const EqState &eq) { return eq.swEqEnable != 0 && eq.swTapNum > 0 ? eq.swTapNum / 2 : 0; }

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

QvVoiceNoiseTrace noise_trace(const AnrState &st) {
  const AnrEnhance &enh = st.stEnhance;
  if (st.swAnrEnable == 0 || st.swFrameCnt == 0)
    return {no_level_db, 1.f, 1.f};
  const auto bands = float(st.swBandNum);
  float power = 0, gain = 0, presence = 0;
  for (int32_t b = 0; b < st.swBandNum; ++b) {
    power += enh.pfNoiseBand[b];
    gain += enh.pfGain[b];
    presence += band_presence(enh.pfGain[b], enh.pfGainH1[b], enh.fGainMin);
  }
  return {power > 0 ? 10.f * std::log10(power / bands) : no_level_db, gain / bands, presence / bands};
}

QvVoiceTrace whole_trace() {
  const VoiceProcess &st = g_stVoiceProcess;
  QvVoiceTrace trace{};
  trace.tx_frame = session.tx_frames;
  trace.rx_frame = session.rx_frames;
  trace.suppressor_gain = 1.f;
  trace.talk_state = st.stAec.stDtd.swTalkState;
  if (st.stAec.swAecEnable == 1) {
    const qv::aec::FrameReport &report = qv::aec::last_frame;
    trace.echo_delay = std::clamp(st.stAec.swEchoDelay, 0, AEC_MAX_DELAY);
    trace.delay_changed = report.delay_changed;
    trace.leakage = st.stAec.stMdf.fLeak;
    trace.filter_adapted = st.stAec.stMdf.swAdapted;
    trace.foreground_refreshed = report.foreground_refreshed;
    trace.background_reset = report.background_reset;
    trace.filter_reset = report.filter_reset;
    trace.linear_erle_db = level_ratio_db(double(report.mic_energy), double(report.linear_energy));
    trace.erle_db = level_ratio_db(double(report.mic_energy_prev), double(report.out_energy));
    trace.suppressor_gain = VOICE_VecMean(report.bin_gain, 0, st.swFrameLen - 1);
    trace.muted = report.muted;
  }
  trace.tx_noise = noise_trace(st.stAnrTx);
  trace.rx_noise = noise_trace(st.stAnrRx);
  trace.tx_agc_gain = st.stAgcTx.fGainPrev;
  trace.rx_agc_gain = st.stAgcRx.fGainPrev;
  trace.comfort_noise = st.stCngTx.swActive;
  return trace;
}

} // namespace

const char *QV_VOICE_Version(void) { return QVVOICE_VERSION; }

const char *QV_VOICE_StatusText(int32_t status) {
  switch (status) {
  case QV_VOICE_OK:
    return "success";
  case QV_VOICE_NO_FILE:
    return "the parameter file cannot be opened";
  case QV_VOICE_REFUSED:
    return "sample rate or frame length not served, or the parameter file is for another sample rate";
  case QV_VOICE_SHORT_FILE:
    return "the parameter file holds fewer than 500 words (1000 bytes)";
  case QV_VOICE_NOT_READY:
    return "not initialised";
  case QV_VOICE_BAD_ARGUMENT:
    return "a null pointer, or a record without its size";
  case QV_VOICE_OUT_OF_MEMORY:
    return "out of memory during initialisation";
  default:
    return "unknown status";
  }
}

int32_t QV_VOICE_GetLatency(int32_t *tx, int32_t *rx) {
  if (!tx || !rx)
    return QV_VOICE_BAD_ARGUMENT;
  if (!session.ready)
    return QV_VOICE_NOT_READY;
  const VoiceProcess &st = g_stVoiceProcess;
  // The echo canceller starts from the microphone again: its frame of delay replaces the noise
  // reducer's.
  const bool tx_overlaps = st.stAec.swAecEnable == 1 || st.stAnrTx.swAnrEnable != 0;
  const bool rx_overlaps = st.stAnrRx.swAnrEnable != 0;
  *tx = (tx_overlaps ? st.swFrameLen : 0) + delay_of(st.stEqTx);
  *rx = (rx_overlaps ? st.swFrameLen : 0) + delay_of(st.stEqRx);
  return QV_VOICE_OK;
}

int32_t QV_VOICE_GetTrace(QvVoiceTrace *trace) {
  if (!trace || trace->size < offsetof(QvVoiceTrace, echo_delay))
    return QV_VOICE_BAD_ARGUMENT;
  if (!session.ready)
    return QV_VOICE_NOT_READY;
  const uint32_t size = trace->size;
  QvVoiceTrace whole = whole_trace();
  whole.size = size;
  std::memcpy(trace, &whole, std::min<size_t>(size, sizeof whole));
  return QV_VOICE_OK;
}
