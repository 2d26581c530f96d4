// Residual echo suppressor: state.

#include <algorithm>

#include "dsp/arrays.h"
#include "dsp/smoothing.h"
#include "qvvoice/aec/nlp.h"
#include "qvvoice/dsp/filter_bank.h"

namespace {

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

void AEC_NlpInit(const AecNlpPara *para, AecNlpState *st) {
  *st = {};
  st->swCohSupEnable = para->swCohSupEnable;
  st->swSerSupEnable = para->swSerSupEnable;
  st->swFrameLen = para->swFrameLen;
  st->swFftLen = 2 * para->swFrameLen;
  st->swBandNum = para->swBandNum;
  st->stSer.fSupExp = st->stCoh.fSupExp = para->fSupExp;
  st->stSer.fEchoSup = echo_suppression_db;
  st->stSer.fEchoSupActive = echo_suppression_active_db;
  st->stCoh.swEchoState = 1;
  st->stCoh.fXdAvgMin = 1.f;
  st->stCoh.fMult = para->swFrameLen < 200 ? 1.f : 2.f;
  if (!qv::take(*st, owned))
    return;
  qv::hann_window(st->pfWindow, st->swFftLen);
  for (int32_t b = 0; b < st->swBandNum / 4 * 4; ++b)
    st->stSer.pfBandSupFactor[b] = para->afBandSupFactor[b / 4];
  filterbank_compute_psd(st->stSer.pfBandSupFactor, st->stCoh.pfBinSupFactor);
}

void AEC_NlpDestory(AecNlpState *st) { qv::give_back(*st, owned); }
