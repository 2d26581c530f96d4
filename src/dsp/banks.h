/// @file banks.h  Bins by band, and band values of several spectra side by side.
#pragma once

#include <cstddef>
#include <cstdint>

#include "dsp/fma.h"
#include "qvvoice/dsp/filter_bank.h"

namespace qv {

/// A filter bank with its bins counted per band. The record is exported for one bank of the process.
struct FilterBank {
  FilterBand &band;
  /// Bins first_bin[b] .. first_bin[b + 1] - 1 lie between the centres of the bands b and b + 1.
  int32_t first_bin[QV_MAX_BANDS + 1] = {};
};

/// The one behind g_stFilterBand and g_aswBandTable.
extern FilterBank process_bank;

/// Builds the process's bank and table. @return as take_bank
bool take_process_bank(float sample_rate, int32_t band_count, int32_t bin_count);

/// Builds a bank. @return whether memory was there; without, the bank is empty
bool take_bank(FilterBank &bank, float sample_rate, int32_t band_count, int32_t bin_count);
void give_back_bank(FilterBank &bank);

struct Banked {
  const float *powers; ///< [binCount] read
  float *bands;        ///< [bandCount] overwritten
};

/// filterbank_compute_bank for each: the sums of one spectrum wait for each other, those of several do not.
template <size_t count> void compute_banks(const FilterBank &filters, const Banked (&spectra)[count]) {
  const FilterBand &bank = filters.band;
  const int32_t *first_bin = filters.first_bin;
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

inline void compute_bank(const FilterBank &filters, const float *powers, float *bands) {
  compute_banks<1>(filters, {{powers, bands}});
}

/// filterbank_compute_psd
void compute_bins(const FilterBank &filters, const float *bands, float *bins);

} // namespace qv
