#include "qvvoice/dsp/memory.h"

#include <cstdlib>
#include <cstring>

void *VOICE_Alloc(int32_t size) { return std::calloc(size_t(int64_t(size)), 1); }

void VOICE_Free(void *block) { std::free(block); }

void *VOICE_Memcpy(void *dst, const void *src, int32_t size) { return std::memcpy(dst, src, size_t(size)); }

void *VOICE_Memset(void *dst, int32_t value, int32_t size) { return std::memset(dst, value, size_t(size)); }
