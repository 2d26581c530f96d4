/// @file spectrum.h  Transforms of real signals, single precision.
#pragma once

#include <complex>
#include <vector>

#include <kissfft/kiss_fftr.h>

#include "signal/signal.h"

namespace qv::tool {

using Spectrum = std::vector<std::complex<float>>; ///< [n / 2 + 1]

class Transform {
public:
  /// @param size  even
  explicit Transform(size_t size);
  ~Transform();
  Transform(const Transform &) = delete;
  Transform &operator=(const Transform &) = delete;

  /// Sum of x[i] exp(-2 pi i k / n). @param signal  at most `size` samples; zeros follow
  Spectrum forward(SignalView signal) const;

  /// The signal of a spectrum.
  Signal inverse(const Spectrum &spectrum) const;

private:
  size_t size_;
  kiss_fftr_cfg forward_, inverse_;
};

} // namespace qv::tool
