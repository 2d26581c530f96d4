#include "qvvoice/dsp/filter_bank.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "dsp/arrays.h"
#include "dsp/banks.h"
#include "dsp/bark.h"
#include "dsp/fma.h"

FilterBand g_stFilterBand;
int32_t g_aswBandTable[QV_MAX_FRAME];
qv::FilterBank qv::process_bank{g_stFilterBand};

namespace {

constexpr auto owned = [](FilterBand &bank, auto visit) {
  visit(bank.leftBand, bank.binCount);
  visit(bank.rightBand, bank.binCount);
  visit(bank.leftWeight, bank.binCount);
  visit(bank.rightWeight, bank.binCount);
  visit(bank.bandScale, bank.bandCount);
};

/// Splits each bin between the two bands whose centres enclose it.
void place_bins(FilterBand &bank, float sample_rate) {
  const float bin_hz = sample_rate / float(bank.binCount + bank.binCount);
  const float max_bark = qv::bark(sample_rate * 0.5f);
  const float interval = max_bark / float(bank.bandCount - 1);
  for (int32_t i = 0; i < bank.binCount; ++i) {
    const float position = qv::bark(float(i) * bin_hz);
    if (position > max_bark)
      return;
    const float band = std::floor(position / interval);
    const bool top = band >= float(bank.bandCount - 1);
    const int32_t left = top ? bank.bandCount - 2 : int32_t(band);
    const float share = top ? 1.f : (position - interval * band) / interval;
    bank.leftBand[i] = left;
    bank.rightBand[i] = left + 1;
    bank.leftWeight[i] = 1.f - share;
    bank.rightWeight[i] = share;
  }
}

} // namespace

namespace qv {

bool take_bank(FilterBank &filters, float sample_rate, int32_t band_count, int32_t bin_count) {
  FilterBand &bank = filters.band;
  bank.bandCount = band_count;
  bank.binCount = bin_count;
  if (!take(bank, owned)) {
    give_back_bank(filters);
    return false;
  }
  place_bins(bank, sample_rate);
  for (int32_t i = 0; i < bin_count; ++i) {
    bank.bandScale[bank.leftBand[i]] += bank.leftWeight[i];
    bank.bandScale[bank.rightBand[i]] += bank.rightWeight[i];
  }
  for (int32_t b = 0; b < band_count; ++b)
    bank.bandScale[b] = 1.f / bank.bandScale[b];
  for (int32_t b = 0; b <= band_count; ++b)
    filters.first_bin[b] = int32_t(std::lower_bound(bank.leftBand, bank.leftBand + bin_count, b) - bank.leftBand);
  return true;
}

bool take_process_bank(float sample_rate, int32_t band_count, int32_t bin_count) {
  if (!take_bank(process_bank, sample_rate, band_count, bin_count))
    return false;
  std::fill(std::copy_n(g_stFilterBand.leftBand, bin_count, g_aswBandTable), std::end(g_aswBandTable), 0);
  return true;
}

void give_back_bank(FilterBank &filters) {
  give_back(filters.band, owned);
  filters.band.bandCount = 0;
  filters.band.binCount = 0;
}

void compute_bins(const FilterBank &filters, const float *bands, float *__restrict ps) {
  const FilterBand &bank = filters.band;
  for (int32_t band = 0; band < bank.bandCount - 1; ++band)
    for (int32_t i = filters.first_bin[band]; i < filters.first_bin[band + 1]; ++i)
      ps[i] = fma(bands[band + 1], bank.rightWeight[i], bands[band] * bank.leftWeight[i]);
}

} // namespace qv

void VOICE_SignalInit(int32_t sampleRate, int32_t bandCount, int32_t frameLen) {
  filterbank_new(float(sampleRate), bandCount, frameLen);
}

void VOICE_SignalDestroy(void) { filterbank_destroy(); }

void filterbank_new(float sampleRate, int32_t bandCount, int32_t binCount) {
  qv::take_process_bank(sampleRate, bandCount, binCount);
}

void filterbank_destroy(void) { qv::give_back_bank(qv::process_bank); }

void filterbank_compute_bank(const float *ps, float *bands) { qv::compute_bank(qv::process_bank, ps, bands); }

void filterbank_compute_psd(const float *bands, float *ps) { qv::compute_bins(qv::process_bank, bands, ps); }
