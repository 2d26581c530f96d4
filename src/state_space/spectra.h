/// @file spectra.h  Spectra that lie one behind the other.
#pragma once

#include <cstdint>

#include "dsp/batch.h"

namespace qv::state_space {

/// Real and imaginary parts in two arrays: loops over bins then vectorise, and no compiler makes fused complex products
/// of them.
struct Spectra {
  float *re = nullptr, *im = nullptr; ///< [count * stride]
  int32_t stride = 0;

  SplitSpectrum operator[](int32_t i) const { return {re + i * stride, im + i * stride}; }
};

} // namespace qv::state_space
