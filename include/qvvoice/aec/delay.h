/// @file delay.h  Bulk delay between reference and microphone, from binary spectra.
///
/// Each block of half a frame becomes one 32-bit word per signal: a bit per bin, set when the bin's
/// power is above its own slow average. The delay is the age of the reference word that differs
/// least from the microphone's, on average.
#ifndef QVVOICE_AEC_DELAY_H
#define QVVOICE_AEC_DELAY_H

#include <stdint.h>

#include "qvvoice/export.h"

QV_BEGIN_DECLS

typedef struct AecDelayPara {
  int32_t swDelayEstEnable; ///< 1 runs the estimator
  int32_t swBlockLen;       ///< block length L in samples, half a frame: 64, 80, 128 or 160
  int32_t swHistorySize;    ///< candidate delays in blocks, 32
  int32_t swLookahead;      ///< near-end lookahead in blocks, 0
} AecDelayPara;

/// Counts are bit differences 0..32 in Q9 (value * 512). H = candidates.
typedef struct AecDelayBinaryState {
  int32_t *aswMeanBitCnt;    ///< [H] smoothed bit difference per candidate, Q9; 20.0 after init
  int32_t *aswFarBitCnt;     ///< [H] set bits of each stored reference word, newest first
  int32_t *aswBitCnt;        ///< [H] bit difference of this block per candidate, 0..32
  uint32_t *auwFarHist;      ///< [H] reference words, newest first
  uint32_t *auwNearHist;     ///< [lookahead + 1] microphone words, newest first
  int32_t swMinProb;         ///< acceptance threshold, Q9; 32.0 after init, only falls
  int32_t swLastDelayProb;   ///< count of the last accepted candidate, creeping up; Q9
  int32_t swLastDelay;       ///< last accepted delay in blocks
  int32_t swHistorySize;     ///< H
  int32_t swNearHistorySize; ///< lookahead + 1
} AecDelayBinaryState;

typedef struct AecDelayState {
  int32_t swDelayEstEnable; ///< copy
  int32_t swBlockLen;       ///< L
  int32_t swFftLen;         ///< 2L
  float *pfNearTime;        ///< [2L] microphone: previous block, then current
  float *pfFarTime;         ///< [2L] reference: previous block, then current
  float *pfNearWin;         ///< [2L] windowed pfNearTime
  float *pfFarWin;          ///< [2L] windowed pfFarTime
  float *pfWindow;          ///< [2L] periodic Hann window
  float *pfFarThr;          ///< [L + 1] slow average power of the reference per bin
  float *pfNearThr;         ///< [L + 1] slow average power of the microphone per bin
  int32_t swFarThrInit;     ///< 0 until pfFarThr is seeded
  int32_t swNearThrInit;    ///< 0 until pfNearThr is seeded
  AecDelayBinaryState stBinary;
} AecDelayState;

QV_API void AEC_DelayInit(const AecDelayPara *para, AecDelayState *st);
QV_API void AEC_DelayBinaryInit(int32_t historySize, int32_t lookahead, AecDelayBinaryState *st);

/// Runs all whole blocks of a frame.
/// @param mic,ref  [n] samples; at most 320 points per transform, so L <= 160
/// @return delay after the last block in samples, a multiple of L; the last known one when n < L
QV_API int32_t AEC_DelayProcess(const int16_t *mic, const int16_t *ref, int32_t n, AecDelayState *st);

/// One block. @param mic,ref  [blockLen]  @return delay in samples
QV_API int32_t AEC_DelayProcessSub(const int16_t *mic, const int16_t *ref, int32_t blockLen, AecDelayState *st);

/// One step of the tracker. @return delay in blocks, 0 .. H - 1
QV_API int32_t AEC_BinarySpectrumProcess(AecDelayBinaryState *st, uint32_t farWord, uint32_t nearWord);

QV_API void AEC_DelayDestroy(AecDelayState *st);
QV_API void AEC_DelayBinaryDestroy(AecDelayBinaryState *st);

QV_END_DECLS

#endif
