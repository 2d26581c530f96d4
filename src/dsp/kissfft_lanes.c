// The sources that go with kissfft_lanes.h. The sizes of their records are multiples of a vector's: what stands behind
// them in one block is aligned when the block is.

#include "dsp/kissfft_lanes.h"

#define USE_SIMD
static inline QvLanes _mm_set1_ps(float x) { return (QvLanes){x, x, x, x}; }

#include <kissfft/kiss_fft.c>
#include <kissfft/kiss_fftr.c>
