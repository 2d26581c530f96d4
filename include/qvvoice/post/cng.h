/// @file cng.h  Comfort noise: shaped random noise added while the far end is not silent.
#ifndef QVVOICE_POST_CNG_H
#define QVVOICE_POST_CNG_H

#include <stdint.h>

#include "qvvoice/export.h"

QV_BEGIN_DECLS

typedef struct CngPara {
  int32_t swCngEnable;  ///< nonzero: on
  int32_t swSampleRate; ///< Hz, carried
  int32_t swFrameLen;   ///< N
  float fNoiseLevel;    ///< first factor of the source's amplitude
  float fNoiseGain;     ///< second factor of the source's amplitude
  float fLevelSmooth;   ///< smoothing of the band level, 0.92
  float fEchoWeight;    ///< share of the error band powers in the level, 0.3
} CngPara;

typedef struct CngState {
  int32_t swCngEnable;
  int32_t swSampleRate;
  int32_t swFrameLen; ///< N
  int32_t swFftLen;   ///< 2N
  float fNoiseLevel;
  float fNoiseGain;
  float fLevelSmooth;
  float fEchoWeight;
  float *pfSpectrum;      ///< [2N] packed spectrum of the noise
  float *pfNoiseBuf;      ///< [2N] source: previous and current N random samples
  float *pfFrame;         ///< [2N] windowed source, then the synthesis
  float *pfOverlap;       ///< [N] second half of the previous synthesis
  float *pfWindow;        ///< [2N] periodic Hann window
  float *pfBandLevel;     ///< [N + 1], the first B used: smoothed amplitude per band, at most 4
  float *pfErrBandSmooth; ///< [N + 1], the first B used: error powers smoothed across bands
  int32_t swActive;       ///< 1 in frames to which noise is added
} CngState;

QV_API void CNG_Init(const CngPara *para, CngState *state);

/// One frame, no delay. The source is rand(), which this library never seeds.
/// @param in,out     [N]; may be the same array
/// @param talkState  0 far end silent: nothing is added
/// @param noiseBand  [B] the transmit noise reducer's noise powers
/// @param errBand    [B] the residual echo suppressor's error powers; B = 24 for N <= 160, else 32
QV_API void CNG_Process(const int16_t *in, int16_t *out, int32_t talkState, const float *noiseBand,
                        const float *errBand, CngState *state);

QV_API void CNG_Destroy(CngState *state);

QV_END_DECLS

#endif
