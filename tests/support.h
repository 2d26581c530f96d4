/// @file support.h  What the tests of the library share: the frame layouts, seeded signals, comparisons that count.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <ostream>
#include <random>
#include <span>
#include <vector>

namespace qv::test {

struct Layout {
  int32_t rate, frame_len, bands;
  friend std::ostream &operator<<(std::ostream &os, const Layout &l) { return os << l.rate << " Hz, " << l.frame_len; }
};

inline constexpr Layout all_layouts[] = {{8000, 128, 24}, {8000, 160, 24}, {16000, 256, 32}, {16000, 320, 32}};

using Samples = std::vector<int16_t>;

/// Uniform noise of the given peak; the same for the same seed.
inline Samples noise_samples(uint32_t seed, size_t count, int32_t peak) {
  std::minstd_rand random(seed + 1);
  std::uniform_int_distribution<int32_t> level(-peak, peak);
  Samples signal(count);
  std::generate(signal.begin(), signal.end(), [&] { return int16_t(level(random)); });
  return signal;
}

inline std::vector<float> noise_values(uint32_t seed, size_t count, float peak = 1.f) {
  std::minstd_rand random(seed + 1);
  std::uniform_real_distribution<float> level(-peak, peak);
  std::vector<float> signal(count);
  std::generate(signal.begin(), signal.end(), [&] { return level(random); });
  return signal;
}

inline double energy(std::span<const int16_t> samples) {
  double sum = 0;
  for (const double x : samples)
    sum += x * x;
  return sum;
}

/// Root-mean-square error over the root mean square of the expected values; infinite when there is nothing to compare
/// or a value is undefined.
template <class Expected, class Actual> double relative_error(const Expected &expected, const Actual &actual) {
  double error = 0, energy = 0;
  if (std::size(expected) == 0 || std::size(expected) != std::size(actual))
    return INFINITY;
  for (size_t i = 0; i < std::size(expected); ++i) {
    error += std::pow(double(actual[i]) - double(expected[i]), 2);
    energy += std::pow(double(expected[i]), 2);
  }
  const double ratio = std::sqrt(error / energy);
  return std::isnan(ratio) ? INFINITY : ratio;
}

} // namespace qv::test
