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
int32_t qv::first_bin[QV_MAX_FRAME + 1];

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

void VOICE_SignalInit(int32_t sampleRate, int32_t bandCount, int32_t frameLen) {
  filterbank_new(float(sampleRate), bandCount, frameLen);
}

void VOICE_SignalDestroy(void) { filterbank_destroy(); }

void filterbank_new(float sampleRate, int32_t bandCount, int32_t binCount) {
  FilterBand &bank = g_stFilterBand;
  bank.bandCount = bandCount;
  bank.binCount = binCount;
  if (!qv::take(bank, owned)) {
    filterbank_destroy();
    return;
  }
  place_bins(bank, sampleRate);
  for (int32_t i = 0; i < binCount; ++i) {
    bank.bandScale[bank.leftBand[i]] += bank.leftWeight[i];
    bank.bandScale[bank.rightBand[i]] += bank.rightWeight[i];
  }
  for (int32_t b = 0; b < bandCount; ++b)
    bank.bandScale[b] = 1.f / bank.bandScale[b];
  std::fill(std::copy_n(bank.leftBand, binCount, g_aswBandTable), std::end(g_aswBandTable), 0);
  for (int32_t b = 0; b <= bandCount; ++b)
    qv::first_bin[b] = int32_t(std::lower_bound(bank.leftBand, bank.leftBand + binCount, b) - bank.leftBand);
}

void filterbank_destroy(void) {
  qv::give_back(g_stFilterBand, owned);
  g_stFilterBand.bandCount = 0;
  g_stFilterBand.binCount = 0;
}

void filterbank_compute_bank(const float *ps, float *bands) { qv::compute_banks<1>({{ps, bands}}); }

void filterbank_compute_psd(const float *bands, float *__restrict ps) {
  const FilterBand &bank = g_stFilterBand;
  for (int32_t band = 0; band < bank.bandCount - 1; ++band)
    for (int32_t i = qv::first_bin[band]; i < qv::first_bin[band + 1]; ++i)
      ps[i] = qv::fma(bands[band + 1], bank.rightWeight[i], bands[band] * bank.leftWeight[i]);
}
