/// @file bands.h  The bands in which the canceller decides: 100 Hz wide, above 800 Hz an eighth of their frequency.
#pragma once

#include "state_space/shape.h"
#include "state_space/spectra.h"

namespace qv::state_space {

inline constexpr int32_t most_bands = 32;

struct Bands {
  int32_t count = 0;
  int32_t edge[most_bands + 1] = {}; ///< first bin of each band, and the bin behind the last; bin 0 is in none

  int32_t width(int32_t b) const { return edge[b + 1] - edge[b]; }
};

Bands bands_of(const Shape &shape);

/// |in|^2 per bin, by a factor. @param power  [bins]
void power_of(const SplitSpectrum &in, float factor, float *power, int32_t bins);

/// Mean per bin of every band. @param power  [bins]  @param mean  [bands]
void means_of(const float *power, const Bands &bands, float *mean);

} // namespace qv::state_space
