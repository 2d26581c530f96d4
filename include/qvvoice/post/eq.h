/// @file eq.h  Equaliser: linear-phase FIR filter of up to 257 taps.
#ifndef QVVOICE_POST_EQ_H
#define QVVOICE_POST_EQ_H

#include <stdint.h>

#include "qvvoice/export.h"

QV_BEGIN_DECLS

#define EQ_MAX_HALF_TAPS 129 ///< stored half of the response, centre included

typedef struct EqPara {
  int32_t swEqEnable;             ///< nonzero: on
  int16_t swFrameLen;             ///< N
  int16_t swHalfTapNum;           ///< H; below 1 the frame passes, above 129 counts as 129
  float afCoef[EQ_MAX_HALF_TAPS]; ///< c0 .. c(H-1), the last one the centre
} EqPara;

typedef struct EqState {
  int32_t swEqEnable;
  int16_t swFrameLen;  ///< N
  int16_t swTapNum;    ///< T = 2H - 1; 0 when the frame passes
  int16_t *pswHistory; ///< [T - 1 + N] the last T - 1 samples, then the current frame
  float *pfCoef;       ///< [T] the whole symmetric response
} EqState;

QV_API void EQ_Init(const EqPara *para, EqState *state);

/// One frame, H - 1 samples of delay. @param in,out  [N]; may be the same array
QV_API void EQ_Process(const int16_t *in, int16_t *out, EqState *state);

QV_API void EQ_Destroy(EqState *state);

QV_END_DECLS

#endif
