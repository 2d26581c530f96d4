/// @file banks.h  Band values of several spectra side by side.
#pragma once

#include <cstddef>
#include <cstdint>

#include "dsp/fma.h"
#include "qvvoice/dsp/filter_bank.h"

namespace qv {

struct Banked {
  const float *powers; ///< [binCount] read
  float *bands;        ///< [bandCount] overwritten
};

/// filterbank_compute_bank for each: the sums of one spectrum wait for each other, those of several do not.
template <size_t count> void compute_banks(const Banked (&spectra)[count]) {
  const FilterBand &bank = g_stFilterBand;
  // The lower band never falls from bin to bin: two running sums, handed on when it rises.
  float lower[count] = {}, upper[count] = {};
  int32_t band = 0;
  const auto close_band = [&] {
    for (size_t s = 0; s < count; ++s) {
      spectra[s].bands[band] = lower[s] * bank.bandScale[band];
      lower[s] = upper[s];
      upper[s] = 0;
    }
    ++band;
  };
  for (int32_t i = 0; i < bank.binCount; ++i) {
    while (band < bank.leftBand[i])
      close_band();
    for (size_t s = 0; s < count; ++s) {
      lower[s] = fma(bank.leftWeight[i], spectra[s].powers[i], lower[s]);
      upper[s] = fma(bank.rightWeight[i], spectra[s].powers[i], upper[s]);
    }
  }
  while (band < bank.bandCount)
    close_band();
}

} // namespace qv
