// Segmental SNR, SI-SDR and ESTOI against hand-computed numbers and a slow reading of the papers.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

#include "measure/quality.h"
#include "scene/noise.h"

namespace qv::tool::measure {
namespace {

using scene::Random;
using scene::white_noise;

Signal plus(const Signal &a, const Signal &b, double gain = 1) {
  Signal sum = a;
  for (size_t i = 0; i < sum.size(); ++i)
    sum[i] += gain * b[i];
  return sum;
}

TEST(SegmentalSnr, is_the_clamped_mean_over_frames) {
  // Frames of 160 samples at 8000 Hz: error 20 dB down, then none (35), then ten times the signal (-10, from -20).
  Signal clean(480, 0.1), processed(480, 0.1);
  std::fill_n(processed.begin(), 160, 0.11);
  std::fill_n(processed.begin() + 320, 160, 1.1);
  EXPECT_NEAR(*segmental_snr_db(clean, processed, 8000), (20 + 35 - 10) / 3.0, 1e-9);
  std::fill_n(clean.begin() + 320, 160, 0.0);
  EXPECT_NEAR(*segmental_snr_db(clean, processed, 8000), (20 + 35) / 2.0, 1e-9) << "silent frames do not count";
  EXPECT_FALSE(segmental_snr_db(Signal(480), processed, 8000));
}

TEST(SiSdr, agrees_with_hand_computed_numbers) {
  // s = (3, 4, 0), e = (0, 0, 5): 0 dB. With (6, 8, 1) the scale is 2: 10 log10(100 / 1).
  const Signal s = {3, 4, 0};
  EXPECT_NEAR(*si_sdr_db(s, Signal{3, 4, 5}), 0, 1e-12);
  EXPECT_NEAR(*si_sdr_db(s, Signal{6, 8, 1}), 20, 1e-12);
  EXPECT_NEAR(*si_sdr_db(s, Signal{-6, -8, 1}), 20, 1e-12) << "the sign is a scale";
  EXPECT_FALSE(si_sdr_db(s, s)) << "nothing but the signal: no ratio";
  EXPECT_FALSE(si_sdr_db(s, Signal(3)));
  EXPECT_FALSE(si_sdr_db(Signal(3), s));
}

/// Noise with the slow modulation of speech, 10000 Hz.
Signal modulated(size_t count, uint64_t seed) {
  Signal signal = white_noise(count, Random(seed));
  for (size_t i = 0; i < count; ++i)
    signal[i] *= 0.1 * (1.1 + std::sin(2 * std::numbers::pi * 4 * double(i) / 10000));
  return signal;
}

/// ESTOI as the paper states it, for signals at 10000 Hz without silent frames; every sum written out.
double slow_estoi(const Signal &x, const Signal &y) {
  using Matrix = std::vector<std::vector<double>>; // [band][frame]
  const auto bands = [](const Signal &signal) {
    const size_t frames = (signal.size() - 256) / 128 + 1;
    Matrix matrix(15, std::vector<double>(frames));
    for (size_t m = 0; m < frames; ++m) {
      std::vector<double> powers(257);
      for (size_t k = 0; k <= 256; ++k) {
        std::complex<double> sum = 0;
        for (size_t i = 0; i < 256; ++i)
          sum += signal[m * 128 + i] * std::pow(std::sin(std::numbers::pi * double(i + 1) / 257), 2) *
                 std::polar(1.0, -2 * std::numbers::pi * double(k * i % 512) / 512);
        powers[k] = std::norm(sum);
      }
      for (size_t j = 0; j < 15; ++j) {
        const double centre = 150 * std::pow(2.0, double(j) / 3);
        const auto low = std::lround(centre * std::pow(2.0, -1.0 / 6) * 512 / 10000);
        const auto high = std::lround(centre * std::pow(2.0, 1.0 / 6) * 512 / 10000);
        for (auto k = low; k < high; ++k)
          matrix[j][m] += powers[size_t(k)];
        matrix[j][m] = std::sqrt(matrix[j][m]);
      }
    }
    return matrix;
  };
  const Matrix bx = bands(x), by = bands(y);
  const auto entry = [](const Matrix &b, size_t j, size_t n, size_t m) { // of the row-normalised segment that ends at m
    double mean = 0, norm = 0;
    for (size_t i = 0; i < 30; ++i)
      mean += b[j][m - 29 + i] / 30;
    for (size_t i = 0; i < 30; ++i)
      norm += std::pow(b[j][m - 29 + i] - mean, 2);
    return (b[j][m - 29 + n] - mean) / std::sqrt(norm);
  };
  double total = 0;
  for (size_t m = 29; m < bx[0].size(); ++m)
    for (size_t n = 0; n < 30; ++n) {
      double mean_x = 0, mean_y = 0, cross = 0, norm_x = 0, norm_y = 0;
      for (size_t j = 0; j < 15; ++j) {
        mean_x += entry(bx, j, n, m) / 15;
        mean_y += entry(by, j, n, m) / 15;
      }
      for (size_t j = 0; j < 15; ++j) {
        const double a = entry(bx, j, n, m) - mean_x, b = entry(by, j, n, m) - mean_y;
        cross += a * b;
        norm_x += a * a;
        norm_y += b * b;
      }
      total += cross / std::sqrt(norm_x * norm_y) / 30;
    }
  return total / double(bx[0].size() - 29);
}

TEST(Estoi, agrees_with_a_slow_reading_of_the_paper) {
  // Taking out silent frames adds the windowed frames up again, which a Hann window of 256 without zeros at its ends
  // keeps only nearly: the comparison is on signals that have been through it.
  const Signal clean = modulated(5376, 5);
  const auto overlap_added = [](const Signal &signal) {
    Signal sum(signal.size());
    for (size_t begin = 0; begin + 256 <= signal.size(); begin += 128)
      for (size_t i = 0; i < 256; ++i)
        sum[begin + i] += signal[begin + i] * std::pow(std::sin(std::numbers::pi * double(i + 1) / 257), 2);
    return sum;
  };
  double last = 1;
  for (const double noise : {0.02, 0.1, 0.3}) {
    const Signal noisy = plus(clean, white_noise(clean.size(), Random(6)), noise);
    const double value = *estoi(clean, noisy, 10000);
    EXPECT_NEAR(value, slow_estoi(overlap_added(clean), overlap_added(noisy)), 1e-4) << noise;
    EXPECT_LT(value, last) << noise;
    last = value;
  }
}

TEST(Estoi, knows_its_limits) {
  const Signal speech = modulated(30000, 7);
  Signal quieter = speech, paused = speech;
  for (double &value : quieter)
    value *= 0.01;
  paused.insert(paused.begin() + 15000, 20000, 0.0);
  EXPECT_NEAR(*estoi(speech, speech, 10000), 1, 1e-6);
  EXPECT_NEAR(*estoi(speech, quieter, 10000), 1, 1e-6) << "level does not matter";
  EXPECT_NEAR(*estoi(speech, modulated(30000, 8), 10000), 0.3, 0.3) << "same modulation, other carrier";
  EXPECT_NEAR(*estoi(paused, plus(paused, white_noise(paused.size(), Random(9)), 1e-4), 10000), 1, 0.01)
      << "noise in the pauses does not count";
  EXPECT_FALSE(estoi(modulated(3000, 1), modulated(3000, 1), 10000)) << "less than 30 frames";
  EXPECT_FALSE(estoi(speech, Signal(speech.size()), 10000));
  EXPECT_FALSE(estoi(Signal(speech.size()), speech, 10000));
}

} // namespace
} // namespace qv::tool::measure
