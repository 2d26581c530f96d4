/// @file agc.h  Automatic gain control: a level curve of three straight segments, one gain per frame.
///
/// Levels are dB of mean square relative to a full-scale square wave (digital silence: -90.3 dB).
#ifndef QVVOICE_POST_AGC_H
#define QVVOICE_POST_AGC_H

#include <stdint.h>

#include "qvvoice/export.h"

QV_BEGIN_DECLS

typedef struct AgcPara {
  int32_t swAgcEnable;  ///< nonzero: on
  int32_t swSampleRate; ///< Hz, carried
  int32_t swFrameLen;   ///< N
  float fReservedDb;    ///< carried, not used
  float fKneeLowDb;     ///< lower knee of the curve
  float fKneeHighDb;    ///< upper knee of the curve
  float fSlopeLow;      ///< output dB per input dB at or below the lower knee
  float fSlopeMid;      ///< slope between the knees
  float fSlopeHigh;     ///< slope above the upper knee
  float fKneeGainDb;    ///< gain at the upper knee
  int32_t swRampLow;    ///< samples over which the gain moves, at or below the lower knee
  int32_t swRampMid;    ///< the same between the knees
  int32_t swRampHigh;   ///< the same above the upper knee
} AgcPara;

typedef struct AgcState {
  int32_t swAgcEnable;
  int32_t swSampleRate;
  int32_t swFrameLen;
  float fReservedDb;
  float fKneeLowDb;
  float fKneeHighDb;
  float fSlopeLow;
  float fSlopeMid;
  float fSlopeHigh;
  float fKneeGainDb;
  float fOffsetLowDb;  ///< intercept of the low segment
  float fOffsetMidDb;  ///< intercept of the middle segment
  float fOffsetHighDb; ///< intercept of the high segment
  float fGainPrev;     ///< linear gain at the end of the previous frame; 1 after init
  int32_t swRampLow;
  int32_t swRampMid;
  int32_t swRampHigh;
} AgcState;

QV_API void AGC_Init(const AgcPara *para, AgcState *state);

/// One frame, no delay. @param in,out  [N]; may be the same array
QV_API void AGC_Process(const int16_t *in, int16_t *out, AgcState *state);

QV_API void AGC_Destroy(AgcState *state);

/// Level of a mean square, dB: 10 log10(power) - 90.3087.
QV_API float AGC_Power2Db(float power);

/// Amplitude ratio of a level change in dB: 10^(db / 20).
QV_API float AGC_DeltaDb2Gain(float db);

QV_END_DECLS

#endif
