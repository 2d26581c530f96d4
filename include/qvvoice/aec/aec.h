/// @file aec.h  Echo canceller: delay alignment and the order of its four stages.
#ifndef QVVOICE_AEC_AEC_H
#define QVVOICE_AEC_AEC_H

#include <stdint.h>

#include "qvvoice/aec/delay.h"
#include "qvvoice/aec/dtd.h"
#include "qvvoice/aec/mdf.h"
#include "qvvoice/aec/nlp.h"
#include "qvvoice/export.h"

QV_BEGIN_DECLS

#define AEC_MAX_DELAY 4096 ///< look-back of the reference history, samples

typedef struct AecPara {
  int32_t swAecEnable; ///< 1 runs the echo canceller
  int32_t swFrameLen;  ///< N
  int32_t swEchoDelay; ///< fixed delay, or the start of the estimate, samples
  AecDelayPara stDelay;
  AecMdfPara stMdf;
  AecNlpPara stNlp;
  AecDtdPara stDtd;
} AecPara;

typedef struct AecState {
  int32_t swAecEnable;
  int32_t swFrameLen;  ///< N
  int32_t swEchoDelay; ///< delay of this frame in samples; used within 0..AEC_MAX_DELAY
  int16_t *psFarHist;  ///< [AEC_MAX_DELAY + N] reference history, oldest first
  AecDelayState stDelay;
  AecMdfState stMdf;
  AecDtdState stDtd;
  AecNlpState stNlp;
} AecState;

QV_API void AEC_Init(const AecPara *para, AecState *st);

/// One frame.
/// @param mic      [N] raw microphone
/// @param ref      [N] what was just played
/// @param out      [N] written; neither `mic` nor, while other stages still need it, `ref`
/// @param anrGain  [N + 1] the transmit noise reducer's gain per bin
QV_API void AEC_Process(const int16_t *mic, const int16_t *ref, int16_t *out, AecState *st, const float *anrGain);

QV_API void AEC_Destroy(AecState *st);

QV_END_DECLS

#endif
