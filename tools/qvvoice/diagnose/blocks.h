/// @file blocks.h  Spectra of blocks of 64 ms, every 32 ms.
#pragma once

#include "signal/correlation.h"
#include "signal/spectrum.h"

namespace qv::tool::diagnose {

inline constexpr double block_hop = 0.032; ///< s

constexpr size_t block_length(int rate) { return size_t(rate) * 64 / 1000; } ///< samples

class BlockAnalyser {
public:
  explicit BlockAnalyser(int rate);

  /// Under a periodic Hann window, scaled so that the summed power of both sides of the spectrum is that of the signal,
  /// without what lies below 24 Hz.
  /// @param begin  sample; zeros stand where the signal has none
  Spectrum spectrum(SignalView signal, std::ptrdiff_t begin) const;

private:
  size_t length_;
  Transform transform_;
  Signal window_;
};

/// Power of a one-sided spectrum from a bin on; its first and last bin hold little and count like the others.
double total(const Spectrum &spectrum, size_t first = 0);

/// s; 0 without points.
double nearest_delay(const std::vector<DelayPoint> &points, double time);

} // namespace qv::tool::diagnose
