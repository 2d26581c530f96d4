#include "report/spectrogram.h"

#include <algorithm>
#include <cmath>
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

uint8_t grey(double power) {
  const double level = power > 0 ? 10 * std::log10(power) : -grey_of_full_scale;
  return uint8_t(std::clamp(std::lround(level) + grey_of_full_scale, 0L, 255L));
}

} // namespace

SpectrogramScale spectrogram_scale(size_t samples, int rate) {
  const size_t finest = size_t(rate) / 100;
  const size_t hop = std::max(finest, samples / most_columns + 1);
  const size_t length = transform_length(rate);
  return {double(hop) / rate, double(rate) / double(length), int(samples / hop + 1), int(length / 2)};
}

GreyPicture spectrogram(SignalView signal, int rate, const SpectrogramScale &scale) {
  const size_t length = transform_length(rate);
  const Transform transform(length);
  const Signal window = window_of(length);
  GreyPicture picture{scale.columns, scale.rows, Bytes(size_t(scale.columns) * size_t(scale.rows))};
  for (int column = 0; column < scale.columns; ++column) {
    const auto centre = std::ptrdiff_t(std::lround(column * scale.column_seconds * rate));
    Signal part = excerpt(signal, centre - std::ptrdiff_t(length / 2), length);
    for (size_t i = 0; i < length; ++i)
      part[i] *= window[i];
    const Spectrum spectrum = transform.forward(part);
    for (int row = 0; row < scale.rows; ++row)
      picture.pixels[size_t(scale.rows - 1 - row) * size_t(scale.columns) + size_t(column)] =
          grey(double(std::norm(spectrum[size_t(row)])));
  }
  return picture;
}

} // namespace qv::tool::report
