#include <algorithm>
#include <cmath>

#include "dsp/fma.h"
#include "dsp/sample.h"
#include "post/stages.h"
#include "qvvoice/dsp/math.h"
#include "qvvoice/dsp/vector.h"

namespace {

/// 10 log10(32768^2): the level of a full-scale square wave on the 16-bit scale, dB.
constexpr double full_scale_db = 90.3087;

/// Beyond any use (the smallest sample clips at 1e5) and far enough from overflow to interpolate.
constexpr float largest_gain = 1e30f;

struct Wanted {
  float level_db;
  int32_t ramp; ///< samples over which the gain gets there
};

/// Reads the wanted level off the curve of three segments.
Wanted wanted_level(const AgcState &st, float level_db) {
  if (st.fKneeHighDb < level_db)
    return {qv::fma(st.fSlopeHigh, level_db, st.fOffsetHighDb), st.swRampHigh};
  if (st.fKneeLowDb < level_db)
    return {qv::fma(st.fSlopeMid, level_db, st.fOffsetMidDb), st.swRampMid};
  return {qv::fma(st.fSlopeLow, level_db, st.fOffsetLowDb), st.swRampLow};
}

} // namespace

void qv::post::retune(const AgcPara &para, AgcState &state) {
  state = {
      .swAgcEnable = para.swAgcEnable,
      .swSampleRate = para.swSampleRate,
      .swFrameLen = para.swFrameLen,
      .fReservedDb = para.fReservedDb,
      .fKneeLowDb = para.fKneeLowDb,
      .fKneeHighDb = para.fKneeHighDb,
      .fSlopeLow = para.fSlopeLow,
      .fSlopeMid = para.fSlopeMid,
      .fSlopeHigh = para.fSlopeHigh,
      .fKneeGainDb = para.fKneeGainDb,
      .fOffsetLowDb = 0,
      .fOffsetMidDb = 0,
      .fOffsetHighDb = 0,
      .fGainPrev = state.fGainPrev,
      .swRampLow = para.swRampLow,
      .swRampMid = para.swRampMid,
      .swRampHigh = para.swRampHigh,
  };
  const auto intercept = [](float knee_db, float slope, float level_db) { return fma(-knee_db, slope, level_db); };
  const float high_knee_level = para.fKneeHighDb + para.fKneeGainDb;
  state.fOffsetMidDb = intercept(para.fKneeHighDb, para.fSlopeMid, high_knee_level);
  state.fOffsetHighDb = intercept(para.fKneeHighDb, para.fSlopeHigh, high_knee_level);
  const float low_knee_level = fma(para.fKneeLowDb, para.fSlopeMid, state.fOffsetMidDb);
  state.fOffsetLowDb = intercept(para.fKneeLowDb, para.fSlopeLow, low_knee_level);
}

void AGC_Init(const AgcPara *para, AgcState *state) {
  state->fGainPrev = 1.f;
  qv::post::retune(*para, *state);
}

void AGC_Destroy(AgcState *) {}

float AGC_Power2Db(float power) {
  const float bels = float(std::log10(double(power)));
  return float(double(bels * 10.f) - full_scale_db);
}

float AGC_DeltaDb2Gain(float db) { return VOICE_DeltaDb2Gain(db); }

void AGC_Process(const int16_t *in, int16_t *out, AgcState *state) {
  const int32_t n = state->swFrameLen;
  if (state->swAgcEnable == 0) {
    std::copy_n(in, n, out);
    return;
  }
  const float mean_square = VOICE_VvMultAdd16(in, in, n) / float(n);
  const float level_db = AGC_Power2Db(mean_square > 1.f ? mean_square : 1.f);
  const Wanted wanted = wanted_level(*state, level_db);
  const float old_gain = state->fGainPrev;
  const float new_gain = std::min(AGC_DeltaDb2Gain(wanted.level_db - level_db), largest_gain);

  const auto gain_at = [&](int32_t i) {
    const float share = float(i + 1) / float(wanted.ramp);
    return i < wanted.ramp ? qv::fma(1.f - share, old_gain, new_gain * share) : new_gain;
  };
  qv::to_samples(out, n, [&](int32_t i) { return float(in[i]) * gain_at(i); });
  state->fGainPrev = gain_at(n - 1);
}
