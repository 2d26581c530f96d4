// The filter bank: where its bands lie, what adds up in them, and the way back to bins.

#include "qvvoice/dsp/filter_bank.h"

#include "support.h"

namespace {

using namespace qv::test;

double bark(double hz) { return 13.1 * std::atan(0.00074 * hz) + 2.24 * std::atan(1.85e-8 * hz * hz) + 1e-4 * hz; }

// Triangles evenly spaced on the Bark scale: a bin's share of its upper band is its place between the two centres.
TEST(FilterBank, bins_lie_where_their_bark_value_says) {
  for (const Layout &layout : {all_layouts[3], all_layouts[0], all_layouts[2], all_layouts[1]}) { // longest first
    VOICE_SignalInit(layout.rate, layout.bands, layout.frame_len);
    const FilterBand &bank = g_stFilterBand;
    const auto n = size_t(layout.frame_len), bands = size_t(layout.bands);
    std::vector<double> weight_sum(bands), power_sum(bands);
    const auto powers = noise_values(1, n + 1);
    for (size_t i = 0; i < n; ++i) {
      const double hz = double(i) * layout.rate / 2 / double(n);
      const double place = bark(hz) / bark(layout.rate / 2.0) * double(bands - 1);
      EXPECT_NEAR(double(bank.leftBand[i]) + double(bank.rightWeight[i]), place, 1e-4) << layout << ", bin " << i;
      EXPECT_FLOAT_EQ(bank.leftWeight[i] + bank.rightWeight[i], 1);
      EXPECT_EQ(bank.rightBand[i], bank.leftBand[i] + 1);
      EXPECT_EQ(g_aswBandTable[i], bank.leftBand[i]);
      for (const auto &[band, weight] :
           {std::pair{size_t(place), 1 - std::fmod(place, 1)}, {size_t(place) + 1, std::fmod(place, 1)}}) {
        weight_sum[band] += weight;
        power_sum[band] += weight * powers[i];
      }
    }
    for (size_t i = n; i < QV_MAX_FRAME; ++i)
      EXPECT_EQ(g_aswBandTable[i], 0) << layout;
    std::vector<float> found(bands), bins(n + 1, -77.f);
    filterbank_compute_bank(powers.data(), found.data());
    filterbank_compute_psd(found.data(), bins.data());
    EXPECT_EQ(bins[n], -77.f) << "written behind the last bin";
    for (size_t b = 0; b < bands; ++b)
      EXPECT_NEAR(found[b], power_sum[b] / weight_sum[b], 1e-3) << layout << ", band " << b;
    for (size_t i = 0; i < n; ++i) {
      const auto left = size_t(bank.leftBand[i]);
      EXPECT_NEAR(bins[i], found[left] + bank.rightWeight[i] * (found[left + 1] - found[left]), 1e-6) << layout;
    }
    VOICE_SignalDestroy();
    EXPECT_EQ(bank.bandCount + bank.binCount, 0);
  }
}

} // namespace
