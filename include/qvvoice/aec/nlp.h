/// @file nlp.h  Residual echo suppressor: what the linear filter leaves, removed in the spectrum.
///
/// N = frame length, L = 2N transform length, M = bands. Spectra D (microphone), X (reference), E
/// (filter output), Y (linear echo estimate) are packed, L floats; powers have N + 1 bins.
#ifndef QVVOICE_AEC_NLP_H
#define QVVOICE_AEC_NLP_H

#include <stdint.h>

#include "qvvoice/aec/dtd.h"
#include "qvvoice/export.h"

QV_BEGIN_DECLS

typedef struct AecNlpPara {
  int32_t swFrameLen;                   ///< N
  int32_t swBandNum;                    ///< M, 24 or 32
  int32_t swCohSupEnable;               ///< 1: coherence suppressor on
  int32_t swSerSupEnable;               ///< 1: signal-to-echo-ratio suppressor on
  float fSupExp;                        ///< exponent on the gains of both
  float afBandSupFactor[QV_MAX_GROUPS]; ///< divisor of a gain's odds g/(1-g), per group of bands
} AecNlpPara;

/// Signal-to-echo-ratio suppressor; band arrays [M].
typedef struct AecNlpSerState {
  float *pfPs;            ///< error band power of this frame
  float *pfEchoNoise;     ///< residual echo power estimate
  float *pfOldPs;         ///< wanted-signal power of the previous frame
  float *pfPost;          ///< a-posteriori signal-to-echo ratio, 1e-5..100
  float *pfPrior;         ///< a-priori signal-to-echo ratio, up to 100
  float *pfGain;          ///< spectral amplitude gain
  float *pfGain2;         ///< final band gain
  float *pfGainFloor;     ///< gain floor
  float *pfZeta;          ///< a-priori ratio smoothed over time
  float fSupExp;          ///< exponent on the final gain
  float *pfBandSupFactor; ///< odds divisor per band
  int32_t swFrameCnt;     ///< calls so far
  float fEchoSup;         ///< floor without near-end speech, -40 dB
  float fEchoSupActive;   ///< floor with near-end speech, -15 dB
} AecNlpSerState;

/// Coherence suppressor.
typedef struct AecNlpCohState {
  int32_t swEchoState;    ///< 1 while echo is possible, 0 while near-end only
  int32_t swDivergeState; ///< 1 while the filter's output has more energy than the microphone
  float fXdAvgMin;        ///< slowly rising minimum of the mean far/near incoherence, 1 after init
  float fMult;            ///< divisor of that rise: 1 for N < 200, else 2
  float fSupExp;          ///< exponent on the final gain
  float *pfBinSupFactor;  ///< [N + 1] odds divisor per bin
  float *pfHnl;           ///< [N + 1] gain per bin
} AecNlpCohState;

typedef struct AecNlpState {
  int32_t swCohSupEnable;
  int32_t swSerSupEnable;
  int32_t swFrameLen;                                     ///< N
  int32_t swFftLen;                                       ///< L
  int32_t swBandNum;                                      ///< M
  int32_t swDelayMute;                                    ///< 1: mute, the echo delay has just moved
  int32_t swDelaySameCnt;                                 ///< frames since the delay estimate last moved
  float *pfNearTime, *pfFarTime, *pfErrTime, *pfEchoTime; ///< [L] previous frame, current frame
  float *pfNearSpec, *pfFarSpec, *pfErrSpec, *pfEchoSpec; ///< [L] D, X, E, Y
  float *pfNearPsd, *pfFarPsd, *pfErrPsd;                 ///< [N + 1] smoothed powers
  float *pfFarNearCross, *pfErrNearCross;                 ///< [L] smoothed X conj(D), E conj(D)
  float *pfCohFarNear, *pfCohErrNear;                     ///< [N + 1] magnitude-squared coherences
  float *pfNearBand, *pfFarBand, *pfEchoBand, *pfErrBand; ///< [M] band powers of this frame
  float *pfSynth, *pfSynthPrev;                           ///< [L] synthesis of this and of the previous frame
  float *pfWindow;                                        ///< [L] periodic Hann window
  AecNlpSerState stSer;
  AecNlpCohState stCoh;
} AecNlpState;

QV_API void AEC_NlpInit(const AecNlpPara *para, AecNlpState *st);
QV_API void AEC_NlpDestory(AecNlpState *st);

/// One frame; the output lags the input by one frame.
/// @param mic      [N] microphone
/// @param farRef   [N] aligned reference
/// @param io       [N] in: the linear filter's output; out: the suppressed frame
/// @param dtd      the talk state of this frame; judged further here
/// @param anrGain  [N + 1] the noise reducer's gain; bins 0 .. N - 1 are read
/// @param leak     the linear filter's leakage
QV_API void AEC_NlpProcess(const int16_t *mic, const int16_t *farRef, int16_t *io, AecDtdState *dtd, AecNlpState *nlp,
                           const float *anrGain, float leak);

/// Band gains from signal-to-echo ratios into `ser->pfGain2`.
/// @param ps,echo  [count] band powers of error and echo estimate
QV_API void AEC_NlpSerCancel(const float *ps, const float *echo, int32_t count, AecNlpSerState *ser, float leak);

/// Bin gains from coherences into `coh->pfHnl`.
/// @param cohErr,incohFar   [lastBin + 1] error/near coherence, 1 - far/near coherence
/// @param nearSpec,errSpec  [specLen] D and E; E is overwritten by D while the filter diverges
/// @param nearPsd,errPsd    [lastBin + 1] smoothed powers
/// @param lastBin           N, at least 71
QV_API void AEC_NlpCohCancel(const float *cohErr, const float *incohFar, const float *nearSpec, float *errSpec,
                             const float *nearPsd, const float *errPsd, int32_t lastBin, int32_t specLen,
                             AecNlpCohState *coh);

/// floor[i]: amplitude gain that leaves `floorDb` (power) of the echo-noise, 0 without noise.
/// @param noise,floor  [count]
QV_API void AEC_NlpGainFloorCal(const float *noise, float *floor, int32_t count, float floorDb);

/// Gain factor of an amplitude estimator: (Gamma(5/4) 1F1(-1/4; 1; -x))^2 / sqrt x, interpolated in steps of 1/2.
/// @param x  below 0 the factor is 1; from 10 on 1 + 0.1296 / x
QV_API float AEC_NlpHypergeomGainCal(float x);

/// k1-th and k2-th largest of v[first] .. v[last]; both outputs get the k1-th when k1 >= k2.
/// Ranks beyond the range are cut to it. Takes scratch memory: not for the frame path.
QV_API void AEC_NlpHnlGet(const float *v, int32_t first, int32_t last, int32_t k1, int32_t k2, float *out1,
                          float *out2);

QV_END_DECLS

#endif
