/// @file banks.h  Bins by band, and band values of several spectra side by side.
#pragma once

#include <cstddef>
#include <cstdint>

#include "dsp/fma.h"
#include "qvvoice/dsp/filter_bank.h"

namespace qv {

/// Bins first_bin[b] .. first_bin[b + 1] - 1 lie between the centres of the bands b and b + 1.
extern int32_t first_bin[QV_MAX_FRAME + 1];

struct Banked {
  const float *powers; ///< [binCount] read
  float *bands;        ///< [bandCount] overwritten
};

/// filterbank_compute_bank for each: the sums of one spectrum wait for each other, those of several do not.
template <size_t count> void compute_banks(const Banked (&spectra)[count]) {
  const FilterBand &bank = g_stFilterBand;
  float lower[count] = {};
  for (int32_t band = 0; band < bank.bandCount; ++band) {
    float upper[count] = {};
    for (int32_t i = first_bin[band]; i < first_bin[band + 1]; ++i)
      for (size_t s = 0; s < count; ++s) {
        lower[s] = accumulate(bank.leftWeight[i], spectra[s].powers[i], lower[s]);
        upper[s] = accumulate(bank.rightWeight[i], spectra[s].powers[i], upper[s]);
      }
    for (size_t s = 0; s < count; ++s) {
      spectra[s].bands[band] = lower[s] * bank.bandScale[band];
      lower[s] = upper[s];
    }
  }
}

} // namespace qv
