#include "report/spectrogram.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>

#include "signal/spectrum.h"

namespace qv::tool::report {
namespace {

constexpr size_t most_columns = 10000; // browsers draw up to 16384 pixels

size_t transform_length(int rate) { return size_t(rate) * 32 / 1000; }

/// Periodic Hann window, scaled so that the power of a sine's peak bin is the sine's own.
Signal window_of(size_t length) {
  Signal window(length);
  for (size_t i = 0; i < length; ++i)
    window[i] =
        (1 - std::cos(2 * std::numbers::pi * double(i) / double(length))) * std::numbers::sqrt2 / double(length);
  return window;
}

size_t finest_hop(int rate) { return size_t(rate) / 100; }

/// Mean power spectrum of a column. @param begin,end  of the column, samples; begin may be negative
std::vector<double> mean_powers(SampleView samples, const Transform &transform, const Signal &window, double begin,
                                double end, size_t spectra) {
  std::vector<double> powers(window.size() / 2);
  for (size_t i = 0; i < spectra; ++i) {
    const auto centre = std::ptrdiff_t(std::lround(std::lerp(begin, end, (double(i) + 0.5) / double(spectra))));
    Signal part = excerpt(samples, centre - std::ptrdiff_t(window.size() / 2), window.size());
    std::ranges::transform(part, window, part.begin(), std::multiplies());
    const Spectrum spectrum = transform.forward(part);
    for (size_t row = 0; row < powers.size(); ++row)
      powers[row] += double(std::norm(spectrum[row])) / double(spectra);
  }
  return powers;
}

uint8_t grey(double power) {
  const double level = power > 0 ? 10 * std::log10(power) : -grey_of_full_scale;
  return uint8_t(std::clamp(std::lround(level) + grey_of_full_scale, 0L, 255L));
}

} // namespace

SpectrogramScale spectrogram_scale(size_t samples, int rate) {
  const size_t hop = std::max(finest_hop(rate), samples / most_columns + 1);
  const size_t length = transform_length(rate);
  return {double(hop) / rate, double(rate) / double(length), int(samples / hop + 1), int(length / 2)};
}

GreyPicture spectrogram(SampleView samples, int rate, const SpectrogramScale &scale) {
  const Transform transform(transform_length(rate));
  const Signal window = window_of(transform_length(rate));
  const double width = scale.column_seconds * rate; // samples
  const auto spectra = size_t(std::ceil(std::round(width) / double(finest_hop(rate))));
  GreyPicture picture{scale.columns, scale.rows, Bytes(size_t(scale.columns) * size_t(scale.rows))};
  for (int column = 0; column < scale.columns; ++column) {
    const auto powers =
        mean_powers(samples, transform, window, (column - 0.5) * width, (column + 0.5) * width, spectra);
    for (int row = 0; row < scale.rows; ++row)
      picture.pixels[size_t(scale.rows - 1 - row) * size_t(scale.columns) + size_t(column)] = grey(powers[size_t(row)]);
  }
  return picture;
}

} // namespace qv::tool::report
