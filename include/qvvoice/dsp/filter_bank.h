/// @file filter_bank.h  Triangular bands, evenly spaced on a Bark scale from 0 Hz to half the rate.
///
/// Bark scale: 13.1 atan(0.00074 f) + 2.24 atan(1.85e-8 f^2) + 1e-4 f, f in Hz (the warping known
/// from perceptual speech coders). One bank serves all modules.
#ifndef QVVOICE_DSP_FILTER_BANK_H
#define QVVOICE_DSP_FILTER_BANK_H

#include <stdint.h>

#include "qvvoice/dsp/layout.h"
#include "qvvoice/export.h"

QV_BEGIN_DECLS

typedef struct FilterBand {
  int32_t *leftBand;  ///< [binCount] lower band that the bin feeds
  int32_t *rightBand; ///< [binCount] upper band, leftBand + 1
  float *leftWeight;  ///< [binCount] weight in the lower band; both weights add up to 1
  float *rightWeight; ///< [binCount] weight in the upper band
  float *bandScale;   ///< [bandCount] 1 / sum of the weights that land in the band
  int32_t bandCount;  ///< 24 at 8000 Hz, 32 at 16000 Hz
  int32_t binCount;   ///< frame length N: bins 0 .. N - 1 of a 2N-point transform
} FilterBand;

extern QV_API FilterBand g_stFilterBand;
extern QV_API int32_t g_aswBandTable[QV_MAX_FRAME]; ///< leftBand of bins 0 .. N - 1; 0 above

/// Builds the bank. @param sampleRate  Hz  @param bandCount  2 .. QV_MAX_BANDS
/// @param frameLen    bins, at most QV_MAX_FRAME
QV_API void VOICE_SignalInit(int32_t sampleRate, int32_t bandCount, int32_t frameLen);
QV_API void VOICE_SignalDestroy(void);

QV_API void filterbank_new(float sampleRate, int32_t bandCount, int32_t binCount);
QV_API void filterbank_destroy(void);

/// Band values: weighted means of the bin powers under each triangle.
/// @param ps     [binCount] read (a Nyquist entry behind it is not)
/// @param bands  [bandCount] overwritten
QV_API void filterbank_compute_bank(const float *ps, float *bands);

/// Bin values by linear interpolation between bands; a flat input stays flat.
/// @param bands  [bandCount]
/// @param ps     [binCount] overwritten, nothing behind it; must not overlap `bands`
QV_API void filterbank_compute_psd(const float *bands, float *ps);

QV_END_DECLS

#endif
