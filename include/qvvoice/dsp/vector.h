/// @file vector.h  Reductions. Each sums in index order; the order is part of the result.
#ifndef QVVOICE_DSP_VECTOR_H
#define QVVOICE_DSP_VECTOR_H

#include <stdint.h>

#include "qvvoice/export.h"

QV_BEGIN_DECLS

/// Mean of v[first] .. v[last], both included; last >= first.
QV_API float VOICE_VecMean(const float *v, int32_t first, int32_t last);

/// Sum of v[0 .. count - 1]; 0 for a count below 1.
QV_API float VOICE_VecSum(const float *v, int32_t count);

/// Largest magnitude of v[0 .. count - 1], 0..32768; element 0 is always read.
QV_API float VOICE_VecAbsMax(const int16_t *v, int32_t count);

/// Largest of v[0 .. count - 1]; element 0 is always read.
QV_API float VOICE_VecMax(const float *v, int32_t count);

/// acc + sum of a[i] * b[i], one fused multiply-add per element.
QV_API float VOICE_VvMultAdd(const float *a, const float *b, int32_t count, float acc);

/// Sum of a[i] * b[i]: exact integer products, added in single precision.
QV_API float VOICE_VvMultAdd16(const int16_t *a, const int16_t *b, int32_t count);

QV_END_DECLS

#endif
