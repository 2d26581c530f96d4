// The Bark bank of all four layouts: hand numbers, and identities that pin every weight.

#include "qvvoice/dsp/filter_bank.h"

#include "support.h"

namespace {

using namespace qv::test;

double bark(double hz) { return 13.1 * std::atan(0.00074 * hz) + 2.24 * std::atan(1.85e-8 * hz * hz) + 1e-4 * hz; }

struct Bank {
  explicit Bank(const Layout &layout) { VOICE_SignalInit(layout.rate, layout.bands, layout.frame_len); }
  ~Bank() { VOICE_SignalDestroy(); }
};

/// Bin values of a band vector; the value behind the last bin must not be touched.
std::vector<float> bins_of(const Layout &layout, const std::vector<float> &bands) {
  std::vector<float> bins(size_t(layout.frame_len) + 1, -77.f);
  filterbank_compute_psd(bands.data(), bins.data());
  EXPECT_EQ(bins.back(), -77.f) << layout;
  bins.pop_back();
  return bins;
}

TEST(FilterBank, lower_bands_start_at_the_documented_bins) {
  struct Start {
    int32_t band, bin;
  };
  const std::vector<Start> starts[] = {{{0, 0}, {1, 3}, {2, 5}, {3, 8}, {22, 112}},
                                       {{0, 0}, {1, 4}, {2, 7}, {3, 10}, {22, 140}},
                                       {{0, 0}, {1, 3}, {2, 5}, {3, 7}, {30, 225}},
                                       {{0, 0}, {1, 3}, {2, 6}, {3, 9}, {30, 282}}};
  for (const size_t l : {3, 0, 1, 2, 3}) { // large before small: nothing of the larger table may stay
    const Layout &layout = all_layouts[l];
    const Bank bank(layout);
    for (const auto &[band, bin] : starts[l]) {
      EXPECT_EQ(g_aswBandTable[bin], band) << layout;
      EXPECT_EQ(bin == 0 ? -1 : g_aswBandTable[bin - 1], band - 1) << layout;
    }
    const std::span<const int32_t> table(g_aswBandTable), placed = table.first(size_t(layout.frame_len));
    EXPECT_EQ(placed.back(), layout.bands - 2) << "the highest band is an upper band only: " << layout;
    EXPECT_TRUE(std::is_sorted(placed.begin(), placed.end())) << layout;
    EXPECT_EQ(std::count(table.begin() + layout.frame_len, table.end(), 0), QV_MAX_FRAME - layout.frame_len) << layout;
  }
}

// Interpolating the band numbers gives every bin its position on the Bark scale: each weight and band is right.
TEST(FilterBank, band_numbers_interpolate_to_the_bark_scale) {
  for (const Layout &layout : all_layouts) {
    const Bank bank(layout);
    std::vector<float> numbers(size_t(layout.bands));
    for (size_t b = 0; b < numbers.size(); ++b)
      numbers[b] = float(b);
    const double interval = bark(layout.rate / 2.0) / (layout.bands - 1);
    const auto position = bins_of(layout, numbers);
    for (size_t i = 0; i < position.size(); ++i)
      EXPECT_NEAR(position[i], bark(double(i) * layout.rate / (2.0 * layout.frame_len)) / interval, 1e-5)
          << layout << " bin " << i;
    const auto flat = bins_of(layout, std::vector<float>(numbers.size(), 3.5f));
    EXPECT_LT(relative_error(std::vector<float>(flat.size(), 3.5f), flat), 1e-7) << layout;
  }
}

// The way from bins to bands uses the same triangles, each divided by its area; the Nyquist value is not read.
TEST(FilterBank, band_values_are_weighted_means_under_the_triangles) {
  for (const Layout &layout : all_layouts) {
    const Bank bank(layout);
    auto power = noise_values(uint32_t(layout.frame_len), size_t(layout.frame_len) + 1);
    power.back() = NAN;
    std::vector<float> found(size_t(layout.bands), -77.f), flat(found);
    std::vector<double> expected;
    for (size_t b = 0; b < found.size(); ++b) {
      std::vector<float> unit(found.size(), 0.f);
      unit[b] = 1;
      const auto triangle = bins_of(layout, unit);
      double sum = 0, area = 0;
      for (size_t i = 0; i < triangle.size(); ++i) {
        sum += double(triangle[i]) * double(power[i]);
        area += double(triangle[i]);
      }
      expected.push_back(sum / area);
    }
    filterbank_compute_bank(power.data(), found.data());
    EXPECT_LT(relative_error(expected, found), 1e-6) << layout;
    filterbank_compute_bank(std::vector<float>(power.size(), 1.f).data(), flat.data());
    EXPECT_LT(relative_error(std::vector<float>(flat.size(), 1.f), flat), 1e-6) << layout;
  }
}

} // namespace
