#include <algorithm>
#include <cmath>

#include "aec/canceller.h"
#include "dsp/counter.h"
#include "dsp/smoothing.h"
#include "qvvoice/dsp/vector.h"

namespace {

constexpr int32_t far_silent = 0, single_talk = 1, double_talk = 2;
constexpr float residual_keep = 0.92f;
constexpr float near_power_min = 100.f; // below it a band says nothing about the near end

/// Copies group values to their bands.
template <class Value> void expand(const Value (&groups)[QV_MAX_GROUPS], Value *bands, int32_t band_count) {
  for (int32_t b = 0; b < band_count / QV_GROUP_BANDS * QV_GROUP_BANDS; ++b)
    bands[b] = groups[b / QV_GROUP_BANDS];
}

/// What the suppressor would let through: per band, across bands, over time, and against the microphone.
void measure_residual(const float *near_band, const float *gain, float *residual, int32_t bands, AecDtdState &st) {
  for (int32_t b = 0; b < bands; ++b) {
    residual[b] *= gain[b];
    st.afRatio[b] = residual[b] / (near_band[b] + 0.0001f);
  }
  for (int32_t b = 0; b < bands; ++b) {
    const bool edge = b < 2 || b >= bands - 2;
    st.afResFreqSm[b] = edge ? residual[b] : qv::five_point_mean(residual + b);
    const float smooth =
        qv::recursive_average(st.afResTimeSm[b], residual_keep, st.afResFreqSm[b], 1.f - residual_keep);
    st.afResTimeSm[b] = std::isfinite(smooth) ? smooth : 0.f;
  }
}

float ramp(float x, float low, float high) { return x > high ? 1.f : (x - low) / (high - low + 0.001f); }

/// How surely a band holds near-end speech, 0..1.
float near_presence(float residual, float far_power, int32_t b, const AecDtdState &st) {
  if (st.aswBandJudgeEnable[b] != 1 || far_power <= st.afBandFarMin[b])
    return 1.f;
  if (st.afResFreqSm[b] < st.afResDropFactor[b] * st.afResTimeSm[b])
    return 0.f;
  if (residual < st.afResLow[b] || st.afResTimeSm[b] < st.afResLow[b] || st.afRatio[b] < st.afRatioLow[b])
    return 0.f;
  return std::min({ramp(residual, st.afResLow[b], st.afResHigh[b]),
                   ramp(st.afResTimeSm[b], st.afResLow[b], st.afResHigh[b]),
                   ramp(st.afRatio[b], st.afRatioLow[b], st.afRatioHigh[b])});
}

int32_t count_convincing(const float *near_band, const float *presence, int32_t bands, const AecDtdState &st) {
  int32_t count = 0;
  for (int32_t b = std::max(st.swCountBandStart, 0); b < std::min(st.swCountBandEnd, bands); ++b)
    count += st.afRatio[b] * presence[b] > st.fPresenceThr && near_band[b] > near_power_min;
  return count;
}

} // namespace

void qv::aec::retune_detector(const AecDtdPara &para, AecDtdState &st) {
  const int32_t bands = st.swBandNum;
  st.fFarActiveThr = para.fFarActiveThr;
  st.swFarSilentHang = para.swFarSilentHang;
  expand(para.afBandFarThr, st.afBandFarThr, bands);
  expand(para.aswBandJudgeEnable, st.aswBandJudgeEnable, bands);
  expand(para.afBandFarMin, st.afBandFarMin, bands);
  expand(para.afResLow, st.afResLow, bands);
  expand(para.afResHigh, st.afResHigh, bands);
  expand(para.afRatioLow, st.afRatioLow, bands);
  expand(para.afRatioHigh, st.afRatioHigh, bands);
  expand(para.afResDropFactor, st.afResDropFactor, bands);
  st.swCountBandStart = para.swCountBandStart;
  st.swCountBandEnd = para.swCountBandEnd;
  st.swCountMin = para.swCountMin;
  st.swSingleTalkHang = para.swSingleTalkHang;
  st.fPresenceThrInit = para.fPresenceThrInit;
  st.fPresenceThrStep = para.fPresenceThrStep;
  st.fPresenceThrMax = para.fPresenceThrMax;
  st.fPresenceThrMin = para.fPresenceThrMin;
}

void AEC_DtdInit(const AecDtdPara *para, AecDtdState *st) {
  *st = {};
  st->swFrameLen = para->swFrameLen;
  st->swBandNum = para->swBandNum;
  qv::aec::retune_detector(*para, *st);
  st->fPresenceThr = para->fPresenceThrInit;
  st->swTalkState = double_talk;
  std::fill_n(st->aswBandFarActive, para->swBandNum, 2);
}

void AEC_DtdDestroy(AecDtdState *) {}

void AEC_DtdProcessPassJudge(const int16_t *farRef, AecDtdState *st) {
  st->swTalkState = double_talk;
  if (VOICE_VecAbsMax(farRef, st->swFrameLen) < st->fFarActiveThr) {
    qv::count_up(st->swFarSilentCnt);
    if (st->swFarSilentCnt > st->swFarSilentHang)
      st->swTalkState = far_silent;
  } else {
    st->swFarSilentCnt = 0;
  }
}

void AEC_DtdProcessBandPassJudge(const float *farBand, int32_t bandNum, AecDtdState *st) {
  for (int32_t b = 0; b < bandNum; ++b)
    st->aswBandFarActive[b] = farBand[b] < st->afBandFarThr[b] ? 0 : 2;
}

int32_t AEC_DtdProcessStDtJudge(const float *nearBand, const float *farBand, float *errBand, const float *gainBand,
                                float *presence, int32_t bandNum, AecDtdState *st) {
  measure_residual(nearBand, gainBand, errBand, bandNum, *st);
  for (int32_t b = 0; b < bandNum; ++b)
    presence[b] = near_presence(errBand[b], farBand[b], b, *st);

  // A threshold between bounds; written so that an undefined one returns to a bound.
  if (count_convincing(nearBand, presence, bandNum, *st) >= st->swCountMin) {
    st->swBelowCnt = 0;
    st->fPresenceThr = std::max(st->fPresenceThrMin, st->fPresenceThr - st->fPresenceThrStep);
    return st->swTalkState = double_talk;
  }
  qv::count_up(st->swBelowCnt);
  if (st->swBelowCnt <= st->swSingleTalkHang)
    return st->swBelowCnt;
  st->fPresenceThr = std::min(st->fPresenceThrMax, st->fPresenceThr + st->fPresenceThrStep);
  return st->swTalkState = single_talk;
}

void AEC_DtdGainSmooth(const float *in, float *out, int32_t n) {
  for (const int32_t edge : {0, 1, n - 2, n - 1})
    out[edge] = in[edge];
  for (int32_t b = 2; b < n - 2; ++b)
    out[b] = in[b] > -0.1f ? qv::recursive_average(out[b], 0.6f, qv::five_point_mean(in + b), 1.f - 0.6f) : in[b];
}
