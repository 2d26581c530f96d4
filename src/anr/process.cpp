// One frame of the noise reducer: analysis, tracking and gain per band, synthesis by overlap-add.

#include <algorithm>

#include "anr/reducer.h"
#include "dsp/bins.h"
#include "dsp/sample.h"
#include "qvvoice/dsp/spectrum.h"

namespace {

/// Spectrum and band energies of the previous and the current frame under one Hann window.
void analyse(const int16_t *in, AnrState &st, const qv::Services &dsp) {
  const int32_t n = st.swFrameLen;
  std::copy_n(st.pfInPrev, n, st.pfSpectrum);
  std::copy_n(in, n, st.pfSpectrum + n);
  std::copy_n(in, n, st.pfInPrev);
  for (int32_t i = 0; i < 2 * n; ++i)
    st.pfSpectrum[i] *= st.pfWindow[i];
  dsp.forward(st.pfSpectrum, st.pfSpectrum, st.swFftLen);
  VOICE_PowerSpectrumCcum(st.pfSpectrum, st.pfBinGain, st.swFftLen);
  compute_bank(dsp.bank, st.pfBinGain, st.pfBandPow);
}

void update_gains(AnrState &st) {
  const int32_t bands = st.swBandNum;
  if (++st.swFrameCnt == 1) {
    ANR_First_Frm(st.pfBandPow, bands, &st);
    return;
  }
  ANR_Noise_Est(st.pfBandPow, bands, &st.stNoiseEst);
  for (int32_t k = 0; k < bands; ++k)
    st.stEnhance.pfNoiseBand[k] = st.stNoiseEst.pfNoise[k] * st.fNoiseScale;
  ANR_Enhance(st.pfBandPow, bands, &st.stEnhance);
  std::copy_n(st.stEnhance.pfGainH1, bands, st.stNoiseEst.pfGainPrev);
}

/// Rumble filter: ramps up the lowest values of the packed spectrum, DC to bin 5.
void taper_low_bins(float *spectrum) {
  for (int32_t i = 0; i <= 10; ++i)
    spectrum[i] *= float(i) / 10.f;
}

void synthesise(int16_t *out, AnrState &st, const qv::Services &dsp) {
  const int32_t n = st.swFrameLen;
  dsp.inverse(st.pfSpectrum, st.pfSynth, st.swFftLen);
  qv::to_samples(out, n, [&](int32_t i) { return st.pfSynth[i] + st.pfOverlap[i]; });
  std::copy_n(st.pfSynth + n, n, st.pfOverlap);
}

} // namespace

void qv::anr::follow(const int16_t *in, AnrState &state, const Services &dsp) {
  const int32_t n = state.swFrameLen;
  if (state.swAnrEnable == 0) {
    std::fill_n(state.pfBinGain, n, 1.f);
    return;
  }
  analyse(in, state, dsp);
  update_gains(state);
  compute_bins(dsp.bank, state.stEnhance.pfGain, state.pfBinGain);
  state.pfBinGain[n] = 0;
}

void qv::anr::process(const int16_t *in, int16_t *out, AnrState &state, const Services &dsp) {
  follow(in, state, dsp);
  if (state.swAnrEnable == 0) {
    std::copy_n(in, state.swFrameLen, out);
    return;
  }
  apply_bin_gains(state.pfSpectrum, state.pfBinGain, state.swFrameLen);
  taper_low_bins(state.pfSpectrum);
  synthesise(out, state, dsp);
}

void ANR_Process(const int16_t *in, int16_t *out, AnrState *state) {
  qv::anr::process(in, out, *state, qv::process_services);
}
