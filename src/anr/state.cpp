// State of the noise reducer: set-up, tear-down, seeding by the first frame.

#include <algorithm>

#include "anr/reducer.h"
#include "dsp/arrays.h"
#include "dsp/smoothing.h"

namespace {

constexpr auto owned = [](AnrState &st, auto visit) {
  const int32_t n = st.swFrameLen, bands = st.swBandNum;
  AnrNoiseEst &est = st.stNoiseEst;
  AnrEnhance &enh = st.stEnhance;
  visit(st.pfWindow, 2 * n);
  visit(st.pfInPrev, n);
  visit(st.pfOverlap, n);
  visit(st.pfSpectrum, 2 * n);
  visit(st.pfSynth, 2 * n);
  visit(st.pfBinGain, n + 1);
  visit(st.pfBandPow, bands);
  for (float **array : {&est.pfNoise,   &est.pfNoiseSmooth, &est.pfTrkPostSnr, &est.pfTrkPriorSnr,  &est.pfGainPrev,
                        &est.pfSmoothF, &est.pfSmoothFSel,  &est.pfMin,        &est.pfSmoothT,      &est.pfSmoothTSel,
                        &est.pfMinSel,  &est.pfSubMin,      &est.pfSubMinSel,  &enh.pfNoiseBand,    &enh.pfAvgSnr,
                        &enh.pfGainH1,  &enh.pfPostSnr,     &enh.pfPriorSnr,   &enh.pfPriorSnrPrev, &enh.pfGain})
    visit(*array, bands);
};

constexpr auto owned_histories = [](AnrNoiseEst &est, auto visit) {
  visit(est.ppfMinHist, est.swSubWinNum);
  visit(est.ppfMinHistSel, est.swSubWinNum);
};

/// Visits the stored minima, once the arrays that hold them are there.
constexpr auto owned_minima = [](AnrState &st, auto visit) {
  AnrNoiseEst &est = st.stNoiseEst;
  for (float **history : {est.ppfMinHist, est.ppfMinHistSel})
    for (int32_t u = 0; history && u < est.swSubWinNum; ++u)
      visit(history[u], st.swBandNum);
};

} // namespace

namespace qv::anr {

bool init(const AnrPara &para, AnrState &state) {
  state = {};
  state.swSampleRate = para.swSampleRate;
  state.swFrameLen = para.swFrameLen;
  state.swFftLen = 2 * para.swFrameLen;
  state.swBandNum = para.swBandNum;
  state.stNoiseEst.swSubWinNum = para.swSubWinNum;
  state.stNoiseEst.swSubWinFrame = 1;
  state.stEnhance.fSnrFrame = 1000.f;
  retune(para, state);
  if (!take(state, owned) || !take(state.stNoiseEst, owned_histories) || !take(state, owned_minima))
    return false;
  hann_window(state.pfWindow, state.swFftLen);
  return true;
}

void retune(const AnrPara &para, AnrState &state) {
  state.swAnrEnable = para.swAnrEnable;
  state.fNoiseScale = para.fNoiseScale;
  state.stEnhance.fAvgSnrMin = para.fAvgSnrMin;
  state.stEnhance.fAvgSnrMax = para.fAvgSnrMax;
  state.stEnhance.fGainMin = para.fGainMin;
}

} // namespace qv::anr

void ANR_Init(const AnrPara *para, AnrState *state) { qv::anr::init(*para, *state); }

void ANR_Destroy(AnrState *state) {
  qv::give_back(*state, owned_minima);
  qv::give_back(state->stNoiseEst, owned_histories);
  qv::give_back(*state, owned);
}

void ANR_First_Frm(const float *bandPow, int32_t bandNum, AnrState *state) {
  if (bandNum <= 0)
    return;
  float smooth[QV_MAX_BANDS];
  qv::smooth_across_bands(bandPow, smooth, bandNum, 0.5, 0.25);
  const float largest = *std::max_element(smooth, smooth + bandNum);

  AnrNoiseEst &est = state->stNoiseEst;
  AnrEnhance &enh = state->stEnhance;
  for (float *level : {est.pfNoise, est.pfNoiseSmooth, est.pfSmoothF, est.pfSmoothFSel, est.pfMin, est.pfSmoothT,
                       est.pfSmoothTSel, est.pfMinSel, est.pfSubMin, est.pfSubMinSel, enh.pfNoiseBand})
    std::copy_n(smooth, bandNum, level);
  for (float *ratio : {est.pfTrkPostSnr, est.pfTrkPriorSnr, est.pfGainPrev, enh.pfAvgSnr, enh.pfGainH1, enh.pfPostSnr,
                       enh.pfPriorSnr, enh.pfPriorSnrPrev, enh.pfGain})
    std::fill_n(ratio, bandNum, 1.f);
  for (float **history : {est.ppfMinHist, est.ppfMinHistSel})
    for (int32_t u = 0; u < est.swSubWinNum; ++u)
      std::fill_n(history[u], bandNum, largest);
}
