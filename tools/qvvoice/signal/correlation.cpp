#include "signal/correlation.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "signal/spectrum.h"

namespace qv::tool {
namespace {

/// Place of the top of the parabola through three neighbours, -0.5..0.5 about the middle one.
double parabola_top(double before, double middle, double after) {
  const double bend = before - 2 * middle + after;
  return bend < 0 ? 0.5 * (before - after) / bend : 0;
}

/// Correlation of a window's signal with its reference; index i stands for a lag of `first + i` samples when
/// the signal was cut `first` samples after the reference.
Signal correlate(const Transform &transform, SignalView signal, SignalView reference) {
  Spectrum cross = transform.forward(signal);
  const Spectrum by = transform.forward(reference);
  for (size_t k = 0; k < cross.size(); ++k) {
    cross[k] *= std::conj(by[k]);
    const float magnitude = std::abs(cross[k]);
    cross[k] = magnitude > 0 ? cross[k] / magnitude : 0;
  }
  return transform.inverse(cross);
}

} // namespace

std::vector<DelayPoint> delay_points(SignalView signal, SignalView reference, int rate, const DelaySearch &search) {
  const auto window = size_t(search.window * rate), hop = size_t(search.hop * rate);
  const auto first = std::ptrdiff_t(std::floor(search.earliest * rate));
  const auto lags = size_t((search.latest - search.earliest) * rate);
  const Transform transform(size_t(kiss_fftr_next_fast_size_real(int(window + lags))));
  std::vector<DelayPoint> points;
  for (size_t begin = 0; begin + window <= reference.size(); begin += hop) {
    const SignalView by = reference.subspan(begin, window);
    const Signal part = excerpt(signal, std::ptrdiff_t(begin) + first, window + lags);
    const Signal correlation = correlate(transform, part, by);
    const auto height = [](double value) { return std::abs(value); }; // either polarity
    const auto peak =
        size_t(std::ranges::max_element(correlation.begin(), correlation.begin() + std::ptrdiff_t(lags), {}, height) -
               correlation.begin());
    const double rms = std::sqrt(power(SignalView(correlation).first(lags)));
    const double strength = rms > 0 ? std::abs(correlation[peak]) / rms : 0;
    if (strength < search.least_strength || peak == 0 || peak + 1 >= lags)
      continue;
    const double top =
        parabola_top(std::abs(correlation[peak - 1]), std::abs(correlation[peak]), std::abs(correlation[peak + 1]));
    points.push_back(
        {(double(begin) + double(window) / 2) / rate, (double(first) + double(peak) + top) / rate, strength});
  }
  return points;
}

std::optional<DelaySummary> summarise(const std::vector<DelayPoint> &points) {
  if (points.size() < 2)
    return std::nullopt;
  std::vector<double> delays, slopes;
  for (const DelayPoint &point : points) {
    delays.push_back(point.delay);
    for (const DelayPoint &other : points)
      if (other.time > point.time)
        slopes.push_back((other.delay - point.delay) / (other.time - point.time));
  }
  return DelaySummary{median(delays), quantile(delays, 0.9) - quantile(delays, 0.1), 1e6 * median(slopes)};
}

} // namespace qv::tool
