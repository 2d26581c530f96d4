// Extended short-time objective intelligibility: Jensen and Taal, "An algorithm for predicting the intelligibility of
// speech masked by modulated noise maskers", IEEE/ACM TASLP 24(11), 2016; constants as in Taal et al. 2011.

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <numeric>

#include "measure/quality.h"
#include "signal/resample.h"
#include "signal/spectrum.h"

namespace qv::tool::measure {
namespace {

constexpr int estoi_rate = 10000;         // Hz
constexpr size_t window_length = 256;     // samples, 25.6 ms
constexpr size_t hop = window_length / 2; // samples
constexpr size_t fft_size = 512;
constexpr size_t band_count = 15;       // one-third octaves
constexpr double lowest_centre = 150;   // Hz
constexpr size_t segment_length = 30;   // frames, 384 ms
constexpr double dynamic_range_db = 40; // frames further below the loudest are silent

using Bands = std::vector<std::array<double, band_count>>; ///< [frame] band amplitudes

/// Hann window without its zeros at both ends.
const Signal &window() {
  static const Signal values = [] {
    Signal hann(window_length);
    for (size_t i = 0; i < window_length; ++i)
      hann[i] = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * double(i + 1) / double(window_length + 1));
    return hann;
  }();
  return values;
}

Signal windowed(SignalView signal, size_t begin) {
  Signal frame(signal.begin() + std::ptrdiff_t(begin), signal.begin() + std::ptrdiff_t(begin + window_length));
  std::ranges::transform(frame, window(), frame.begin(), std::multiplies());
  return frame;
}

size_t frame_count(SignalView signal) {
  return signal.size() < window_length ? 0 : (signal.size() - window_length) / hop + 1;
}

/// Frames of the clean signal within the dynamic range below its loudest one.
std::vector<size_t> loud_frames(SignalView clean) {
  std::vector<double> powers(frame_count(clean));
  for (size_t i = 0; i < powers.size(); ++i)
    powers[i] = energy(windowed(clean, i * hop));
  std::vector<size_t> loud;
  const double threshold = powers.empty() ? 0 : *std::ranges::max_element(powers) * from_db(-dynamic_range_db);
  for (size_t i = 0; i < powers.size(); ++i)
    if (powers[i] > threshold)
      loud.push_back(i);
  return loud;
}

/// These frames alone, overlapped and added again.
Signal overlap_added(SignalView signal, const std::vector<size_t> &frames) {
  Signal joined(frames.empty() ? 0 : (frames.size() - 1) * hop + window_length);
  for (size_t k = 0; k < frames.size(); ++k) {
    const Signal frame = windowed(signal, frames[k] * hop);
    for (size_t i = 0; i < window_length; ++i)
      joined[k * hop + i] += frame[i];
  }
  return joined;
}

/// First and last-but-one bin of a band: the bins nearest its edges.
std::pair<size_t, size_t> band_bins(size_t band) {
  const auto bin = [&](double third) {
    const double edge = lowest_centre * std::exp2((double(band) + third) / 3);
    return size_t(std::lround(edge * fft_size / estoi_rate));
  };
  return {bin(-0.5), bin(0.5)};
}

Bands third_octaves(SignalView signal) {
  const Transform transform(fft_size);
  Bands bands(frame_count(signal));
  for (size_t i = 0; i < bands.size(); ++i) {
    const Spectrum spectrum = transform.forward(windowed(signal, i * hop));
    for (size_t band = 0; band < band_count; ++band) {
      const auto [first, end] = band_bins(band);
      double sum = 0;
      for (size_t k = first; k < end; ++k)
        sum += double(std::norm(spectrum[k]));
      bands[i][band] = std::sqrt(sum);
    }
  }
  return bands;
}

/// Takes the mean out and brings the norm to 1; a constant becomes zero.
void normalise(std::span<double> values) {
  const double mean = std::accumulate(values.begin(), values.end(), 0.0) / double(values.size());
  double norm = 0;
  for (double &value : values) {
    value -= mean;
    norm += value * value;
  }
  for (double &value : values)
    value = norm > 0 ? value / std::sqrt(norm) : 0;
}

using Segment = std::array<std::array<double, band_count>, segment_length>;

/// The segment with every band normalised over time, then every frame over the bands.
Segment normalised_segment(const Bands &bands, size_t begin) {
  Segment segment;
  std::copy_n(bands.begin() + std::ptrdiff_t(begin), segment_length, segment.begin());
  for (size_t band = 0; band < band_count; ++band) {
    std::array<double, segment_length> row;
    for (size_t i = 0; i < segment_length; ++i)
      row[i] = segment[i][band];
    normalise(row);
    for (size_t i = 0; i < segment_length; ++i)
      segment[i][band] = row[i];
  }
  for (auto &frame : segment)
    normalise(frame);
  return segment;
}

double correlation(const Segment &a, const Segment &b) {
  double sum = 0;
  for (size_t i = 0; i < segment_length; ++i)
    sum += std::inner_product(a[i].begin(), a[i].end(), b[i].begin(), 0.0);
  return sum / double(segment_length);
}

} // namespace

std::optional<double> estoi(SignalView clean, SignalView processed, int rate) {
  const Signal x = resample(clean, rate, estoi_rate), y = resample(processed, rate, estoi_rate);
  const std::vector<size_t> loud = loud_frames(x);
  const Bands clean_bands = third_octaves(overlap_added(x, loud));
  const Bands processed_bands = third_octaves(overlap_added(y, loud));
  if (clean_bands.size() < segment_length || energy(processed) == 0)
    return std::nullopt;
  double sum = 0;
  const size_t segments = clean_bands.size() - segment_length + 1;
  for (size_t begin = 0; begin < segments; ++begin)
    sum += correlation(normalised_segment(clean_bands, begin), normalised_segment(processed_bands, begin));
  return sum / double(segments);
}

} // namespace qv::tool::measure
