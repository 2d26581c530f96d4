/// @file kissfft_lanes.h  kissfft for four signals in the four lanes of a vector, under names of its own.
///
/// kissfft has an option for that, USE_SIMD. Its header then asks for x86's vector type and intrinsics; this one hands
/// it the same as vectors of gcc and clang, which every processor has, and sets the option for its sources only.
#ifndef QVVOICE_KISSFFT_LANES_H
#define QVVOICE_KISSFFT_LANES_H

typedef float QvLanes __attribute__((vector_size(16)));
#define kiss_fft_scalar QvLanes

// The scalar build has names from the compiler's command line.
#undef kiss_fft_alloc
#undef kiss_fft
#undef kiss_fft_stride
#undef kiss_fft_cleanup
#undef kiss_fft_next_fast_size
#undef kiss_fftr_alloc
#undef kiss_fftr
#undef kiss_fftri
#define kiss_fft_alloc qvvoice_lanes_kiss_fft_alloc
#define kiss_fft qvvoice_lanes_kiss_fft
#define kiss_fft_stride qvvoice_lanes_kiss_fft_stride
#define kiss_fft_cleanup qvvoice_lanes_kiss_fft_cleanup
#define kiss_fft_next_fast_size qvvoice_lanes_kiss_fft_next_fast_size
#define kiss_fftr_alloc qvvoice_lanes_kiss_fftr_alloc
#define kiss_fftr qvvoice_lanes_kiss_fftr
#define kiss_fftri qvvoice_lanes_kiss_fftri

#include <kissfft/kiss_fftr.h>

#endif
