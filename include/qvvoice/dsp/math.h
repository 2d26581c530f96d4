/// @file math.h  Small scalar functions: noise source, integer logarithms, curves, decibels.
#ifndef QVVOICE_DSP_MATH_H
#define QVVOICE_DSP_MATH_H

#include <stdint.h>

#include "qvvoice/export.h"

QV_BEGIN_DECLS

/// Zero-mean uniform noise from a linear congruential generator (Numerical Recipes' constants).
/// @param seed  state, any value; advanced
/// @param amp   standard deviation of the result
/// @return a value in [-0.5, 0.5) * 3.4642 * amp
QV_API float VOICE_Rand(uint32_t *seed, float amp);

/// floor(log2 x); 0 for x = 0.
QV_API uint32_t VOICE_Ilog2(uint32_t x);

/// floor(log4 x); 0 for x = 0.
QV_API uint32_t VOICE_Ilog4(uint32_t x);

/// Polynomial cosine, within 1e-5 for 0 <= x <= pi; other angles are not folded.
QV_API float VOICE_Cos(float x);

/// Soft knee x / (x + 0.15); 0 for x = 0.
QV_API float VOICE_Qcurve(float x);

/// Amplitude ratio of a level change in dB: 10^(db / 20).
QV_API float VOICE_DeltaDb2Gain(float db);

QV_END_DECLS

#endif
