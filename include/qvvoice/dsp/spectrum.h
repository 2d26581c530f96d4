/// @file spectrum.h  Kernels over packed spectra of n floats (see fft.h for the layout).
#ifndef QVVOICE_DSP_SPECTRUM_H
#define QVVOICE_DSP_SPECTRUM_H

#include <stdint.h>

#include "qvvoice/export.h"

QV_BEGIN_DECLS

/// power[k] = |X_k|^2.
/// @param spectrum  [n]
/// @param power     [n/2 + 1]; must not overlap `spectrum`, unless it is the same array
/// @param n         even; below 2 it counts as 2
QV_API void VOICE_PowerSpectrumCcum(const float *spectrum, float *power, int32_t n);

/// power[k] += |X_k|^2.
QV_API void VOICE_PowerSpectrumAccum(const float *spectrum, float *power, int32_t n);

/// out = sum over the blocks of X_j * Y_j.
/// @param x,y   [blocks * n] packed spectra, one after the other
/// @param out   [n] overwritten, zero when blocks < 1; must not overlap x or y
QV_API void VOICE_SpectralMulAccum(const float *x, const float *y, float *out, int32_t n, int32_t blocks);

/// out = sum over the blocks of X_j * conj(Y_j); arguments as above.
QV_API void VOICE_SpectralCorrAccum(const float *x, const float *y, float *out, int32_t n, int32_t blocks);

QV_END_DECLS

#endif
