#include "measure/third_octaves.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "signal/activity.h"
#include "signal/spectrum.h"

namespace qv::tool::measure {
namespace {

constexpr int lowest = -9, highest_8k = 5, highest_16k = 8; ///< third octaves from 1000 Hz: 125, 3175 and 6350 Hz
constexpr size_t window_frames = 5;                         ///< 50 ms: bins of 20 Hz, a third of the band at 315 Hz

/// Periodic Hann window; its square has a mean of 1.
Signal window_of(size_t length) {
  Signal window(length);
  for (size_t i = 0; i < length; ++i)
    window[i] = std::sqrt(8.0 / 3) * (0.5 - 0.5 * std::cos(2 * std::numbers::pi * double(i) / double(length)));
  return window;
}

/// The band that each bin counts to, by its middle.
std::vector<size_t> bands_of_bins(size_t size, int rate, size_t bands) {
  std::vector<size_t> band(size / 2 + 1);
  for (size_t k = 1; k < band.size(); ++k) {
    const double third = std::round(3 * std::log2(double(k) * rate / double(size) / 1000));
    band[k] = size_t(std::clamp(third - lowest, 0.0, double(bands - 1)));
  }
  return band;
}

} // namespace

std::vector<double> third_octave_centres(int rate) {
  std::vector<double> centres;
  for (int third = lowest; third <= (rate < 16000 ? highest_8k : highest_16k); ++third)
    centres.push_back(1000 * std::exp2(third / 3.0));
  return centres;
}

std::vector<BandPowers> third_octaves(SignalView signal, const std::vector<bool> &wanted, int rate) {
  const size_t hop = frame_length(rate), size = window_frames * hop, bands = third_octave_centres(rate).size();
  const Signal window = window_of(size);
  const std::vector<size_t> band = bands_of_bins(size, rate, bands);
  const Transform transform(size);
  std::vector<BandPowers> powers(wanted.size());
  for (size_t frame = 0; frame < wanted.size(); ++frame) {
    if (!wanted[frame])
      continue;
    const auto begin = std::ptrdiff_t(frame * hop) - std::ptrdiff_t(window_frames / 2 * hop);
    Signal part = excerpt(signal, begin, size);
    std::ranges::transform(part, window, part.begin(), std::multiplies());
    const Spectrum spectrum = transform.forward(part);
    powers[frame].resize(bands);
    for (size_t k = 0; k < spectrum.size(); ++k) // both halves of the spectrum, whose ends are there once
      powers[frame][band[k]] +=
          double(std::norm(spectrum[k])) * (k == 0 || 2 * k == size ? 1 : 2) / (double(size) * double(size));
  }
  return powers;
}

} // namespace qv::tool::measure
