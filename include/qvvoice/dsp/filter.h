/// @file filter.h  First-order time-domain filters. Memories belong to the caller and start at zero.
#ifndef QVVOICE_DSP_FILTER_H
#define QVVOICE_DSP_FILTER_H

#include <stdint.h>

#include "qvvoice/export.h"

QV_BEGIN_DECLS

/// DC notch.
/// @param in      every stride-th sample is read
/// @param out     [count] written contiguously
/// @param memory  [2] filter state
/// @param radius  pole radius, below 1
QV_API void VOICE_FilterDcNotch16(const int16_t *in, float *out, int32_t count, float *memory, int32_t stride,
                                  float radius);

/// Pre-emphasis out[i] = in[i] - coef * in[i - 1]; `memory` is the input before in[0].
/// @param in,out  [count]; may be the same array
QV_API void VOICE_FilterPreemph(const float *in, float *memory, float *out, int32_t count, float coef);

/// The same from 16-bit samples.
QV_API void VOICE_FilterPreemph16(const int16_t *in, float *memory, float *out, int32_t count, float coef);

QV_END_DECLS

#endif
