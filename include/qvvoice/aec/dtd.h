/// @file dtd.h  Double-talk detector: one talk state per frame, one far-end flag per band.
///
/// Band powers are those of dsp/filter_bank.h over spectra scaled by 1/2N of Hann-windowed 16-bit
/// samples. Configuration is per group of QV_GROUP_BANDS bands.
#ifndef QVVOICE_AEC_DTD_H
#define QVVOICE_AEC_DTD_H

#include <stdint.h>

#include "qvvoice/dsp/layout.h"
#include "qvvoice/export.h"

QV_BEGIN_DECLS

typedef struct AecDtdPara {
  int32_t swFrameLen;                        ///< N
  int32_t swBandNum;                         ///< B, 24 or 32
  float fFarActiveThr;                       ///< peak of the reference that counts as active, 16-bit scale
  int32_t swFarSilentHang;                   ///< quiet frames to exceed before state 0, 5
  float afBandFarThr[QV_MAX_GROUPS];         ///< far-end band power from which a band is excited
  int32_t aswBandJudgeEnable[QV_MAX_GROUPS]; ///< 1: the group is judged, else its presence is 1
  float afBandFarMin[QV_MAX_GROUPS];         ///< far-end band power to exceed for a band to be judged
  float afResLow[QV_MAX_GROUPS];             ///< lower knee of the residual band power
  float afResHigh[QV_MAX_GROUPS];            ///< upper knee of the residual band power
  float afRatioLow[QV_MAX_GROUPS];           ///< lower knee of the residual-to-microphone power ratio
  float afRatioHigh[QV_MAX_GROUPS];          ///< upper knee of that ratio
  float afResDropFactor[QV_MAX_GROUPS];      ///< presence is 0 below this factor times the time average
  int32_t swCountBandStart;                  ///< first counted band
  int32_t swCountBandEnd;                    ///< end of the counted bands, exclusive
  int32_t swCountMin;                        ///< counted bands needed for state 2
  int32_t swSingleTalkHang;                  ///< frames below swCountMin to exceed before state 1
  float fPresenceThrInit;                    ///< start of the adaptive presence threshold
  float fPresenceThrStep;                    ///< its change per decided frame
  float fPresenceThrMax;                     ///< its upper bound
  float fPresenceThrMin;                     ///< its lower bound
} AecDtdPara;

typedef struct AecDtdState {
  int32_t swFrameLen;
  int32_t swBandNum;
  float fFarActiveThr;
  int32_t swFarSilentHang;
  int32_t swFarSilentCnt; ///< quiet reference frames in a row
  float afBandFarThr[QV_MAX_BANDS];
  float afRatio[QV_MAX_BANDS];     ///< residual-to-microphone ratio of this frame
  float afResFreqSm[QV_MAX_BANDS]; ///< residual of this frame, smoothed across bands
  float afResTimeSm[QV_MAX_BANDS]; ///< residual, smoothed over time
  int32_t aswBandJudgeEnable[QV_MAX_BANDS];
  float afBandFarMin[QV_MAX_BANDS];
  float afResLow[QV_MAX_BANDS];
  float afResHigh[QV_MAX_BANDS];
  float afRatioLow[QV_MAX_BANDS];
  float afRatioHigh[QV_MAX_BANDS];
  float afResDropFactor[QV_MAX_BANDS];
  int32_t swCountBandStart;
  int32_t swCountBandEnd;
  int32_t swCountMin;
  int32_t swSingleTalkHang;
  int32_t swBelowCnt; ///< frames in a row with fewer than swCountMin counted bands
  float fPresenceThrInit;
  float fPresenceThrStep;
  float fPresenceThrMax;
  float fPresenceThrMin;
  float fPresenceThr;                     ///< current presence threshold
  int32_t swTalkState;                    ///< 0 far end silent, 1 single talk, 2 double talk or undecided
  int32_t aswBandFarActive[QV_MAX_BANDS]; ///< 2 when the band's far-end power reached its threshold, else 0
} AecDtdState;

QV_API void AEC_DtdInit(const AecDtdPara *para, AecDtdState *st);
QV_API void AEC_DtdDestroy(AecDtdState *st);

/// Sets the talk state of the frame from far-end activity: 2, or 0 after a long enough silence.
/// @param farRef  [N] aligned reference
QV_API void AEC_DtdProcessPassJudge(const int16_t *farRef, AecDtdState *st);

/// Renews aswBandFarActive. @param farBand  [bandNum] far-end band powers
QV_API void AEC_DtdProcessBandPassJudge(const float *farBand, int32_t bandNum, AecDtdState *st);

/// Judges the near end: a presence per band and the choice between talk states 1 and 2.
/// @param nearBand,farBand  [bandNum] band powers of microphone and reference
/// @param errBand           [bandNum] band powers of the filter's error; multiplied by gainBand
/// @param gainBand          [bandNum] the suppressor's band gain
/// @param presence          [bandNum] written, 0..1
/// @return the decided talk state, or the running count of frames without near-end evidence
QV_API int32_t AEC_DtdProcessStDtJudge(const float *nearBand, const float *farBand, float *errBand,
                                       const float *gainBand, float *presence, int32_t bandNum, AecDtdState *st);

/// Smooths a band gain across bands and onto its past. @param in,out  [n], n >= 2, not overlapping
QV_API void AEC_DtdGainSmooth(const float *in, float *out, int32_t n);

QV_END_DECLS

#endif
