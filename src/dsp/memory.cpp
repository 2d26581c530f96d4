#include "qvvoice/dsp/memory.h"

#include <cstdlib>
#include <cstring>

#include "dsp/arrays.h"

namespace {
bool failed = false;
}

namespace qv {

void note_allocation_failure() { failed = true; }

bool allocation_failed() { return failed; }

void forget_allocation_failure() { failed = false; }

} // namespace qv

void *VOICE_Alloc(int32_t size) {
  void *block = std::calloc(size_t(int64_t(size)), 1);
  failed |= block == nullptr;
  return block;
}

void VOICE_Free(void *block) { std::free(block); }

void *VOICE_Memcpy(void *dst, const void *src, int32_t size) { return std::memcpy(dst, src, size_t(size)); }

void *VOICE_Memset(void *dst, int32_t value, int32_t size) { return std::memset(dst, value, size_t(size)); }
