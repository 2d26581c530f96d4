/// @file fft.h  Real transforms of 128, 160, 256, 320, 512 and 640 points.
///
/// Packed spectrum of n real samples, n floats: [0] DC, [2k-1] and [2k] real and imaginary part of
/// bin k (k = 1 .. n/2 - 1), [n-1] the real Nyquist value.
#ifndef QVVOICE_DSP_FFT_H
#define QVVOICE_DSP_FFT_H

#include <stdint.h>

#include "qvvoice/export.h"

QV_BEGIN_DECLS

struct kiss_fftr_state;

typedef struct FftConfig {
  struct kiss_fftr_state *forward;  ///< forward transform of `len` samples
  struct kiss_fftr_state *backward; ///< inverse transform of `len` samples
  int32_t len;                      ///< transform length in samples
} FftConfig;

typedef struct FftState {
  FftConfig *config[6]; ///< lengths 128, 256, 512, 160, 320, 640; null before VOICE_FftInit
} FftState;

extern QV_API FftState g_stFft;

/// Takes one configuration. @param len  even  @return null when memory ran out
QV_API FftConfig *FftInit(int32_t len);

/// Releases one configuration; null is ignored.
QV_API void FftDestroy(FftConfig *config);

/// Fills the six slots of g_stFft.
QV_API void VOICE_FftInit(void);

/// Releases the six slots of g_stFft.
QV_API void VOICE_FftDestroy(void);

/// Forward transform, scaled by 1/n: a constant frame of value a has bin 0 equal to a.
/// @param in   [n] samples
/// @param out  [n] packed spectrum; may be `in`
/// @param n    one of the six lengths; any other prints "Error: No support for FFT length!" and
///             leaves `out` alone
QV_API void VOICE_Fft(const float *in, float *out, int32_t n);

/// Inverse transform, not scaled: VOICE_Ifft of VOICE_Fft returns the input.
/// @param in   [n] packed spectrum
/// @param out  [n] samples; may be `in`
QV_API void VOICE_Ifft(const float *in, float *out, int32_t n);

QV_END_DECLS

#endif
