/// @file anr.h  Noise reducer of one path: band-wise noise tracking and spectral gain.
///
/// Noise tracking by improved minima-controlled recursive averaging (Cohen 2003; Cohen and Berdugo
/// 2001), gain by the optimally-modified log-spectral-amplitude estimator (Cohen and Berdugo 2001,
/// after Ephraim and Malah 1985). N = frame length, B = bands; band arrays are [B]; SNRs are linear
/// power ratios.
#ifndef QVVOICE_ANR_ANR_H
#define QVVOICE_ANR_ANR_H

#include <stdint.h>

#include "qvvoice/export.h"

QV_BEGIN_DECLS

typedef struct AnrPara {
  int32_t swAnrEnable;  ///< nonzero: on
  int32_t swSampleRate; ///< Hz, carried
  int32_t swFrameLen;   ///< N
  int32_t swBandNum;    ///< B, 24 or 32
  float fNoiseScale;    ///< factor on the tracked noise
  int32_t swSubWinNum;  ///< U, sub-windows of the minimum search, 2
  float fAvgSnrMin;     ///< averaged a-priori SNR below which speech is absent, 0.05
  float fAvgSnrMax;     ///< averaged a-priori SNR above which speech is present, 0.516
  float fGainMin;       ///< gain floor, linear amplitude, 0.1
} AnrPara;

typedef struct AnrNoiseEst {
  float *pfNoise;        ///< tracked noise power
  float *pfNoiseSmooth;  ///< recursively averaged noise power
  float *pfTrkPostSnr;   ///< a-posteriori SNR, at most 40
  float *pfTrkPriorSnr;  ///< a-priori SNR
  float *pfGainPrev;     ///< speech-present gain of the previous frame
  float *pfSmoothF;      ///< energies smoothed across bands
  float *pfSmoothFSel;   ///< energies smoothed across the noise-only bands
  float *pfMin;          ///< minimum of pfSmoothT over the search window
  float *pfSmoothT;      ///< pfSmoothF smoothed over time
  float *pfSmoothTSel;   ///< pfSmoothFSel smoothed over time
  float *pfMinSel;       ///< minimum of pfSmoothTSel over the search window
  float *pfSubMin;       ///< minimum of pfSmoothT in the current sub-window
  float *pfSubMinSel;    ///< minimum of pfSmoothTSel in the current sub-window
  float **ppfMinHist;    ///< [U][B] stored minima of pfSmoothT
  float **ppfMinHistSel; ///< [U][B] stored minima of pfSmoothTSel
  int32_t swSubWinNum;   ///< U
  int32_t swSubWinIdx;   ///< slot that the next completed sub-window fills
  int32_t swSubWinFrame; ///< frames counted in the current sub-window
} AnrNoiseEst;

typedef struct AnrEnhance {
  float fAvgSnrMin;
  float fAvgSnrMax;
  float fGainMin;
  float fSnrPeak;        ///< peak of the frame-averaged a-priori SNR; 0 after init, then 1..10
  float fSnrFrame;       ///< mean of pfAvgSnr in the previous frame; 1000 after init
  float *pfNoiseBand;    ///< noise power that the gain rule uses
  float *pfAvgSnr;       ///< recursive average of the a-priori SNR
  float *pfGainH1;       ///< gain if speech is present
  float *pfPostSnr;      ///< a-posteriori SNR, 0.0316..40
  float *pfPriorSnr;     ///< a-priori SNR, at least 0.0316
  float *pfPriorSnrPrev; ///< a-priori SNR of the previous frame
  float *pfGain;         ///< final gain
} AnrEnhance;

typedef struct AnrState {
  int32_t swAnrEnable;
  int32_t swSampleRate;
  int32_t swFrameLen;  ///< N
  int32_t swFftLen;    ///< 2N
  int32_t swBandNum;   ///< B
  uint32_t swFrameCnt; ///< frames processed while enabled; 1 seeds the tracker
  float fNoiseScale;
  float *pfWindow;   ///< [2N] periodic Hann window
  float *pfInPrev;   ///< [N] previous input frame
  float *pfOverlap;  ///< [N] second half of the previous synthesis
  float *pfSpectrum; ///< [2N] windowed frame, then its packed spectrum
  float *pfSynth;    ///< [2N] synthesis
  float *pfBinGain;  ///< [N + 1] power spectrum, then gain per bin
  float *pfBandPow;  ///< band energies
  AnrNoiseEst stNoiseEst;
  AnrEnhance stEnhance;
} AnrState;

QV_API void ANR_Init(const AnrPara *para, AnrState *state);
QV_API void ANR_Destroy(AnrState *state);

/// One frame, one frame of delay; off: a copy without delay, gains 1.
/// @param in,out  [N]; may be the same array
QV_API void ANR_Process(const int16_t *in, int16_t *out, AnrState *state);

/// Seeds tracker and gain rule from the band energies of the first frame.
/// @param bandPow  [bandNum]; bandNum <= QV_MAX_BANDS
QV_API void ANR_First_Frm(const float *bandPow, int32_t bandNum, AnrState *state);

/// Tracks the noise of one frame into `pfNoise`.
/// @param bandPow  [bandNum], 3 <= bandNum <= QV_MAX_BANDS
QV_API void ANR_Noise_Est(const float *bandPow, int32_t bandNum, AnrNoiseEst *est);

/// Gain of one frame into `pfGain`, against `pfNoiseBand`.
/// @param bandPow  [bandNum]; bandNum <= QV_MAX_BANDS
QV_API void ANR_Enhance(const float *bandPow, int32_t bandNum, AnrEnhance *enh);

/// Smooths across bands with a Bartlett-Hann window of 2 * halfWidth + 1 points (Ha and Pearce
/// 1989), divided by the root of its energy: a constant comes out scaled, not unchanged.
/// @param halfWidth  1..32
/// @param src,dst    [bandNum], not overlapping
QV_API void ANR_Smoothing(int32_t bandNum, int32_t halfWidth, const float *src, float *dst);

QV_END_DECLS

#endif
