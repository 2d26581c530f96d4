/// @file denormals.h  Flushing of denormal numbers for the length of a scope.
#pragma once

#include <cstdint>

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

namespace qv {

/// Averages that decay in silence pass through the denormal range, where many processors are a hundred
/// times slower. Inside the scope such values are zero; the caller's mode comes back at its end.
class FlushDenormals {
public:
#if defined(__x86_64__)
  FlushDenormals() : saved_(_mm_getcsr()) { _mm_setcsr(saved_ | flush_to_zero | denormals_are_zero); }
  ~FlushDenormals() { _mm_setcsr((_mm_getcsr() & ~mode_bits) | (saved_ & mode_bits)); }
#elif defined(__aarch64__)
  FlushDenormals() : saved_(control()) { set_control(saved_ | flush_to_zero); }
  ~FlushDenormals() { set_control(saved_); }
#else
  FlushDenormals() {} // nothing to set: such numbers cost what others do, or cannot be flushed
#endif
  FlushDenormals(const FlushDenormals &) = delete;
  FlushDenormals &operator=(const FlushDenormals &) = delete;

private:
#if defined(__x86_64__)
  static constexpr uint32_t flush_to_zero = 1u << 15, denormals_are_zero = 1u << 6;
  static constexpr uint32_t mode_bits = flush_to_zero | denormals_are_zero;
  uint32_t saved_;
#elif defined(__aarch64__)
  static constexpr uint64_t flush_to_zero = uint64_t{1} << 24;
  static uint64_t control() {
    uint64_t value;
    __asm__ volatile("mrs %0, fpcr" : "=r"(value));
    return value;
  }
  static void set_control(uint64_t value) { __asm__ volatile("msr fpcr, %0" : : "r"(value)); }
  uint64_t saved_;
#endif
};

} // namespace qv
