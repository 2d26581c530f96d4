// Residual echo suppressor, frame by frame: Hann-windowed analysis with half overlap, gains, synthesis by
// overlap-add.

#include <algorithm>
#include <cmath>
#include <initializer_list>

#include "aec/canceller.h"
#include "dsp/bins.h"
#include "dsp/sample.h"
#include "dsp/smoothing.h"
#include "qvvoice/dsp/spectrum.h"
#include "qvvoice/dsp/vector.h"

namespace {

constexpr int32_t max_bins = QV_MAX_FRAME + 1;
constexpr float psd_keep = 0.9f;          // time constant of the smoothed spectra: ten frames
constexpr double coherence_floor = 1e-10; // added to the product of two powers: silence is not coherent

/// Puts one frame of the four signals at an offset of their analysis buffers.
void store_frame(const int16_t *mic, const int16_t *far, const int16_t *err, int32_t offset, AecNlpState &st) {
  for (int32_t i = 0; i < st.swFrameLen; ++i) {
    st.pfNearTime[offset + i] = mic[i];
    st.pfFarTime[offset + i] = far[i];
    st.pfErrTime[offset + i] = err[i];
    st.pfEchoTime[offset + i] = float(mic[i] - err[i]);
  }
}

void transform(float *time, float *spectrum, const AecNlpState &st, const qv::Services &dsp) {
  for (int32_t i = 0; i < st.swFftLen; ++i)
    time[i] *= st.pfWindow[i];
  dsp.forward(time, spectrum, st.swFftLen);
  if (!std::isfinite(spectrum[0])) // the sum of all samples: one undefined value spoils every bin
    std::fill_n(spectrum, st.swFftLen, 0.f);
}

void smooth(float *average, const float *now, int32_t count) {
  for (int32_t i = 0; i < count; ++i)
    average[i] = qv::recursive_average(average[i], psd_keep, now[i], 1.f - psd_keep);
}

/// Powers per bin, smoothed over time, and per band.
void measure_powers(AecNlpState &st, const qv::FilterBank &bank) {
  float near[max_bins], far[max_bins], err[max_bins], echo[max_bins];
  VOICE_PowerSpectrumCcum(st.pfNearSpec, near, st.swFftLen);
  VOICE_PowerSpectrumCcum(st.pfFarSpec, far, st.swFftLen);
  VOICE_PowerSpectrumCcum(st.pfErrSpec, err, st.swFftLen);
  VOICE_PowerSpectrumCcum(st.pfEchoSpec, echo, st.swFftLen);
  qv::compute_banks<4>(bank, {{near, st.pfNearBand}, {far, st.pfFarBand}, {err, st.pfErrBand}, {echo, st.pfEchoBand}});
  smooth(st.pfNearPsd, near, st.swFrameLen + 1);
  smooth(st.pfFarPsd, far, st.swFrameLen + 1);
  smooth(st.pfErrPsd, err, st.swFrameLen + 1);
}

/// Magnitude-squared coherence with the microphone.
void measure_coherence(const float *spectrum, const float *psd, float *cross, float *coherence, const AecNlpState &st) {
  float now[2 * QV_MAX_FRAME], power[max_bins];
  VOICE_SpectralCorrAccum(spectrum, st.pfNearSpec, now, st.swFftLen, 1);
  smooth(cross, now, st.swFftLen);
  VOICE_PowerSpectrumCcum(cross, power, st.swFftLen);
  for (int32_t k = 0; k <= st.swFrameLen; ++k)
    coherence[k] = float(double(power[k]) / (double(psd[k] * st.pfNearPsd[k]) + coherence_floor));
}

void suppress_by_coherence(AecNlpState &st) {
  float far_incoherence[max_bins];
  for (int32_t k = 0; k <= st.swFrameLen; ++k)
    far_incoherence[k] = 1.f - st.pfCohFarNear[k];
  AEC_NlpCohCancel(st.pfCohErrNear, far_incoherence, st.pfNearSpec, st.pfErrSpec, st.pfNearPsd, st.pfErrPsd,
                   st.swFrameLen, st.swFftLen, &st.stCoh);
}

/// Sure far-end single talk, or an echo path that has just moved: nothing may pass.
bool must_mute(const AecDtdState &dtd, const AecNlpState &st) { return dtd.swTalkState == 1 || st.swDelayMute == 1; }

/// Band gains of the signal-to-echo-ratio suppressor times near-end presence, spread over the bins.
void band_gains(AecDtdState &dtd, AecNlpState &st, const qv::FilterBank &bank, float *gain) {
  const int32_t bands = st.swBandNum;
  float presence[QV_MAX_BANDS];
  for (int32_t b = 0; b < bands; ++b)
    if (dtd.aswBandFarActive[b] == 0)
      st.stSer.pfGain2[b] = 1.f;
  AEC_DtdProcessStDtJudge(st.pfNearBand, st.pfFarBand, st.pfErrBand, st.stSer.pfGain2, presence, bands, &dtd);
  if (must_mute(dtd, st))
    return;
  for (int32_t b = 0; b < bands; ++b)
    presence[b] *= st.stSer.pfGain2[b];
  compute_bins(bank, presence, gain);
}

/// Bin gains of the coherence suppressor times near-end presence.
void bin_gains(AecDtdState &dtd, AecNlpState &st, const qv::FilterBank &bank, float *gain) {
  const int32_t n = st.swFrameLen;
  float mean_gain[QV_MAX_BANDS], presence[QV_MAX_BANDS];
  for (int32_t b = 0; b < st.swBandNum; ++b)
    if (dtd.aswBandFarActive[b] == 0)
      std::fill_n(st.stCoh.pfHnl + bank.first_bin[b], std::min(bank.first_bin[b + 1], n - 2) - bank.first_bin[b], 1.f);
  compute_bank(bank, st.stCoh.pfHnl, mean_gain);
  AEC_DtdProcessStDtJudge(st.pfNearBand, st.pfFarBand, st.pfErrBand, mean_gain, presence, st.swBandNum, &dtd);
  if (must_mute(dtd, st))
    return;
  compute_bins(bank, presence, gain);
  for (int32_t k = 0; k < n; ++k)
    gain[k] *= st.stCoh.pfHnl[k];
}

/// Pass, suppress per band or bin, or mute.
/// @param gain  [N + 1] overwritten; the Nyquist bin is 0 unless the frame passes
void decide_gains(AecDtdState &dtd, AecNlpState &st, const qv::FilterBank &bank, float *gain,
                  qv::aec::FrameReport &report) {
  if (dtd.swTalkState != 0)
    AEC_DtdProcessBandPassJudge(st.pfFarBand, st.swBandNum, &dtd);
  const bool suppress = dtd.swTalkState != 0 && (st.swSerSupEnable == 1 || st.swCohSupEnable == 1);
  std::fill_n(gain, st.swFrameLen + 1, suppress ? 0.f : 1.f);
  if (suppress && st.swSerSupEnable == 1)
    band_gains(dtd, st, bank, gain);
  else if (suppress)
    bin_gains(dtd, st, bank, gain);
  report.muted = suppress && must_mute(dtd, st);
  report.suppressor_gain = VOICE_VecMean(gain, 0, st.swFrameLen - 1);
}

void overlap_add(int16_t *out, AecNlpState &st) {
  const int32_t n = st.swFrameLen;
  qv::to_samples(out, n, [&](int32_t i) { return st.pfSynthPrev[n + i] + st.pfSynth[i]; });
  std::copy_n(st.pfSynth, st.swFftLen, st.pfSynthPrev);
}

/// Clears what an undefined value would live on in. The smoothed spectra go together: cleared powers under
/// old cross-spectra would give coherences, and so gains, far above 1.
void drop_undefined_memory(AecNlpState &st) {
  struct Memory {
    float *values;
    int32_t count;
  };
  const auto clear_unless_finite = [](std::initializer_list<Memory> group) {
    const bool finite = std::all_of(group.begin(), group.end(),
                                    [](const Memory &memory) { return qv::all_finite(memory.values, memory.count); });
    if (!finite)
      for (const Memory &memory : group)
        std::fill_n(memory.values, memory.count, 0.f);
  };
  const int32_t bins = st.swFrameLen + 1, len = st.swFftLen, bands = st.swBandNum;
  clear_unless_finite({{st.pfNearPsd, bins},
                       {st.pfFarPsd, bins},
                       {st.pfErrPsd, bins},
                       {st.pfFarNearCross, len},
                       {st.pfErrNearCross, len}});
  clear_unless_finite({{st.stSer.pfEchoNoise, bands}, {st.stSer.pfOldPs, bands}, {st.stSer.pfZeta, bands}});
  clear_unless_finite({{st.pfSynthPrev, len}});
  clear_unless_finite({{&st.stCoh.fXdAvgMin, 1}});
}

} // namespace

void qv::aec::suppress(const int16_t *mic, const int16_t *far, int16_t *io, AecDtdState &dtd, AecNlpState &st,
                       const float *anr_gain, float leak, const Services &dsp, FrameReport &report) {
  const int32_t n = st.swFrameLen;
  store_frame(mic, far, io, n, st);
  transform(st.pfNearTime, st.pfNearSpec, st, dsp);
  transform(st.pfFarTime, st.pfFarSpec, st, dsp);
  transform(st.pfErrTime, st.pfErrSpec, st, dsp);
  transform(st.pfEchoTime, st.pfEchoSpec, st, dsp);

  measure_powers(st, dsp.bank);
  if (st.swSerSupEnable == 1)
    AEC_NlpSerCancel(st.pfErrBand, st.pfEchoBand, st.swBandNum, &st.stSer, leak);
  measure_coherence(st.pfFarSpec, st.pfFarPsd, st.pfFarNearCross, st.pfCohFarNear, st);
  measure_coherence(st.pfErrSpec, st.pfErrPsd, st.pfErrNearCross, st.pfCohErrNear, st);
  if (st.swCohSupEnable == 1)
    suppress_by_coherence(st);

  float gain[max_bins];
  decide_gains(dtd, st, dsp.bank, gain, report);
  for (int32_t k = 0; k < n; ++k)
    gain[k] *= anr_gain[k];
  apply_bin_gains(st.pfErrSpec, gain, n);
  dsp.inverse(st.pfErrSpec, st.pfSynth, st.swFftLen);

  store_frame(mic, far, io, 0, st);
  overlap_add(io, st);
  drop_undefined_memory(st);
}

void AEC_NlpProcess(const int16_t *mic, const int16_t *farRef, int16_t *io, AecDtdState *dtd, AecNlpState *nlp,
                    const float *anrGain, float leak) {
  qv::aec::FrameReport unread;
  qv::aec::suppress(mic, farRef, io, *dtd, *nlp, anrGain, leak, qv::process_services, unread);
}
