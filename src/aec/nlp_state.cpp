// Residual echo suppressor: state.

#include <algorithm>

#include "aec/canceller.h"
#include "dsp/arrays.h"
#include "dsp/smoothing.h"

namespace {

constexpr int32_t wide_frame = 200; // samples: longer frames are of 16000 Hz, where an echo is remembered twice as long

constexpr float echo_suppression_db = -40.f;        // without near-end speech
constexpr float echo_suppression_active_db = -15.f; // with near-end speech

constexpr auto owned = [](AecNlpState &st, auto visit) {
  const int32_t len = st.swFftLen, bins = st.swFrameLen + 1, bands = st.swBandNum;
  AecNlpSerState &ser = st.stSer;
  for (float **array :
       {&st.pfNearTime, &st.pfFarTime, &st.pfErrTime, &st.pfEchoTime, &st.pfNearSpec, &st.pfFarSpec, &st.pfErrSpec,
        &st.pfEchoSpec, &st.pfFarNearCross, &st.pfErrNearCross, &st.pfSynth, &st.pfSynthPrev, &st.pfWindow})
    visit(*array, len);
  for (float **array : {&st.pfNearPsd, &st.pfFarPsd, &st.pfErrPsd, &st.pfCohFarNear, &st.pfCohErrNear,
                        &st.stCoh.pfBinSupFactor, &st.stCoh.pfHnl})
    visit(*array, bins);
  for (float **array :
       {&st.pfNearBand, &st.pfFarBand, &st.pfEchoBand, &st.pfErrBand, &ser.pfPs, &ser.pfEchoNoise, &ser.pfOldPs,
        &ser.pfPost, &ser.pfPrior, &ser.pfGain, &ser.pfGain2, &ser.pfGainFloor, &ser.pfZeta, &ser.pfBandSupFactor})
    visit(*array, bands);
};

} // namespace

namespace qv::aec {

bool init_suppressor(const AecNlpPara &para, AecNlpState &st, const FilterBank &bank) {
  st = {};
  st.swFrameLen = para.swFrameLen;
  st.swFftLen = 2 * para.swFrameLen;
  st.swBandNum = para.swBandNum;
  st.stSer.fEchoSup = echo_suppression_db;
  st.stSer.fEchoSupActive = echo_suppression_active_db;
  st.stCoh.swEchoState = 1;
  st.stCoh.fXdAvgMin = 1.f;
  st.stCoh.fMult = para.swFrameLen < wide_frame ? 1.f : 2.f;
  if (!take(st, owned))
    return false;
  hann_window(st.pfWindow, st.swFftLen);
  retune_suppressor(para, st, bank);
  return true;
}

void retune_suppressor(const AecNlpPara &para, AecNlpState &st, const FilterBank &bank) {
  st.swCohSupEnable = para.swCohSupEnable;
  st.swSerSupEnable = para.swSerSupEnable;
  st.stSer.fSupExp = st.stCoh.fSupExp = para.fSupExp;
  for (int32_t b = 0; b < st.swBandNum / QV_GROUP_BANDS * QV_GROUP_BANDS; ++b)
    st.stSer.pfBandSupFactor[b] = para.afBandSupFactor[b / QV_GROUP_BANDS];
  compute_bins(bank, st.stSer.pfBandSupFactor, st.stCoh.pfBinSupFactor);
}

} // namespace qv::aec

void AEC_NlpInit(const AecNlpPara *para, AecNlpState *st) { qv::aec::init_suppressor(*para, *st, qv::process_bank); }

void AEC_NlpDestory(AecNlpState *st) { qv::give_back(*st, owned); }
