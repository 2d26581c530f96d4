/// @file mdf.h  Two-path, multidelay block frequency-domain adaptive filter.
///
/// A background filter adapts in every frame (Soo and Pang 1990); a foreground filter, a copy taken
/// whenever the background has proved better, makes the output (Ochiai, Araseki and Ogihara 1977).
/// N = frame length, M = partitions, spectra packed (see dsp/fft.h) with 2N points, powers with
/// N + 1 bins.
#ifndef QVVOICE_AEC_MDF_H
#define QVVOICE_AEC_MDF_H

#include <stdint.h>

#include "qvvoice/export.h"

QV_BEGIN_DECLS

typedef struct AecMdfPara {
  int32_t swFrameLen;   ///< N
  int32_t swFilterLen;  ///< echo tail in samples, 2N
  int32_t swSampleRate; ///< Hz
} AecMdfPara;

typedef struct AecMdfState {
  int32_t swFrameLen;               ///< N
  int32_t swFftLen;                 ///< 2N
  int32_t swPartNum;                ///< M
  int32_t swFrameCnt;               ///< frames since init or reset
  int32_t swAdapted;                ///< 1 once trained
  int32_t swSatHold;                ///< frames whose weight update is still skipped after clipping
  int32_t swDivergeCnt;             ///< watchdog; 50 resets
  float fSpecAvg;                   ///< smoothing of the averaged spectra, N / rate
  float fBeta0;                     ///< base rate of the leakage regression, 2N / rate
  float fBetaMax;                   ///< its upper bound, N / 2 / rate
  float fSumAdapt;                  ///< sum of the provisional rates before training
  float fLeak;                      ///< echo leakage, 0.005..1 once computed; 0 after init
  float *pfErrTime;                 ///< [2N] error signal e
  float *pfFarTime;                 ///< [2N] pre-emphasised reference: previous block, then current
  float *pfFarSpec;                 ///< [(M + 1) 2N] reference spectra, newest first
  float *pfNearIn;                  ///< [N] pre-emphasised microphone
  float *pfEchoTime;                ///< [2N] background echo estimate y
  float *pfEchoSpec;                ///< [2N] echo spectrum scratch
  float *pfErrSpec;                 ///< [2N] error spectrum for the next weight update
  float *pfGrad;                    ///< [2N] gradient scratch
  float *pfWBg;                     ///< [M 2N] background weights
  float *pfWFg;                     ///< [M 2N] foreground weights
  float fDavg1, fDavg2;             ///< short and long average of the energy difference of the paths
  float fDvar1, fDvar2;             ///< matching variances
  float *pfFarPow;                  ///< [N + 1] smoothed reference power
  float *pfStep;                    ///< [N + 1] step size per bin
  float *pfTmp;                     ///< [2N] scratch of the partition constraint
  float *pfErrPsd;                  ///< [N + 1] power of the error
  float *pfEchoPsd;                 ///< [N + 1] power of the echo estimate
  float *pfFarPsd;                  ///< [N + 1] power of the newest reference block
  float *pfErrPsdAvg;               ///< [N + 1] time average of pfErrPsd
  float *pfEchoPsdAvg;              ///< [N + 1] time average of pfEchoPsd
  float fPey, fPyy;                 ///< leakage regression: error/echo correlation, echo power
  float *pfWindow;                  ///< [2N] periodic Hann window
  float *pfProp;                    ///< [M] share of the step that each partition gets
  float fPreemph;                   ///< pre-emphasis coefficient, 0.9
  float fMemFar, fMemNear, fMemOut; ///< memories of both pre-emphases and of the de-emphasis
} AecMdfState;

/// @return 0
QV_API int32_t AEC_MdfInit(const AecMdfPara *para, AecMdfState *st);

/// One frame.
/// @param mic  [N] microphone
/// @param ref  [N] reference, aligned to the echo
/// @param out  [N] microphone less the linear echo; not `mic`
/// @return 0; read `fLeak` from the state
QV_API int32_t AEC_MdfProcess(const int16_t *mic, const int16_t *ref, int16_t *out, AecMdfState *st);

/// Back to the untrained filter; keeps fLeak and the partition shares.
QV_API void AEC_MdfReset(AecMdfState *st);

/// @return 0
QV_API int32_t AEC_MdfDestory(AecMdfState *st);

QV_END_DECLS

#endif
