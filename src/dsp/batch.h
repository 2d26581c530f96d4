/// @file batch.h  Real transforms of four signals at once, one in each lane of a vector.
///
/// Four cost little more than one by itself. Every lane has the bits that kissfft gives for its signal alone, built
/// from the same source.
#pragma once

#include <cstdint>

struct kiss_fftr_state;

namespace qv {

/// Spectrum of a real frame of 2N samples, real and imaginary parts apart: bins 0 .. N. The imaginary parts of bins 0
/// and N are written as 0 and not read.
struct SplitSpectrum {
  float *re, *im; ///< [N + 1]
};
struct ConstSplitSpectrum {
  const float *re, *im; ///< [N + 1]
};

/// Transforms of one length. A call writes scratch memory of the object and takes nothing from the heap. A lane whose
/// input is null is not used and its output not touched. Outputs do not overlap each other; they may be inputs.
class BatchTransform {
public:
  /// Takes the memory, in place of what an earlier call took.
  /// @param length  samples: a multiple of 8 without prime factors above 5, at most 2 QV_MAX_FRAME
  /// @param ways    what will be asked for: `forward` and `inverse` each need memory
  /// @return whether the length is served and the memory could be had; without, the object holds nothing
  enum class Ways { both, inverse };
  bool init(int32_t length, Ways ways = Ways::both);
  void destroy();

  /// Not scaled: a constant frame of value a has bin 0 equal to a times the length.
  /// @param in  four frames [length]
  void forward(const float *const (&in)[4], const SplitSpectrum (&out)[4]);

  /// Not scaled: gives the length times the signal that `forward` had.
  /// @param out  four frames [length]
  void inverse(const ConstSplitSpectrum (&in)[4], float *const (&out)[4]);

private:
  using Lanes = float __attribute__((vector_size(16)));

  void *block_ = nullptr;  ///< what the others point into, as it came from the heap
  Lanes *lanes_ = nullptr; ///< [length + 2] the frames, and in their place the spectra as kissfft has them
  kiss_fftr_state *forward_ = nullptr;
  kiss_fftr_state *inverse_ = nullptr;
  int32_t length_ = 0;
};

} // namespace qv
