/// @file memory.h  The allocation pair under every module, and plain block operations.
#ifndef QVVOICE_DSP_MEMORY_H
#define QVVOICE_DSP_MEMORY_H

#include <stdint.h>

#include "qvvoice/export.h"

QV_BEGIN_DECLS

/// Zero-filled memory.
/// @param size  bytes; a negative size fails
/// @return the block, or null
QV_API void *VOICE_Alloc(int32_t size);

/// Returns a block of VOICE_Alloc; null is ignored.
QV_API void VOICE_Free(void *block);

/// Copies `size` bytes between regions that do not overlap. @return `dst`
QV_API void *VOICE_Memcpy(void *dst, const void *src, int32_t size);

/// Fills `size` bytes with the low 8 bits of `value`. @return `dst`
QV_API void *VOICE_Memset(void *dst, int32_t value, int32_t size);

QV_END_DECLS

#endif
