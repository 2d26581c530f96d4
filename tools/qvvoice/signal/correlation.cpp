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

double square(std::complex<float> bin) {
  const double re = double(bin.real()), im = double(bin.imag());
  return re * re + im * im;
}

/// Correlation of a window's signal with its reference; index i stands for a lag of `first + i` samples when
/// the signal was cut `first` samples after the reference. Bins in which the reference holds no more than rounding
/// and the skirts of its window are left out.
Signal correlate(const Transform &transform, SignalView signal, SignalView reference) {
  constexpr double empty = 1e-8; // power against the strongest bin
  Spectrum cross = transform.forward(signal);
  const Spectrum by = transform.forward(reference);
  double strongest = 0;
  for (const auto bin : by)
    strongest = std::max(strongest, square(bin));
  for (size_t k = 0; k < cross.size(); ++k) {
    cross[k] = square(by[k]) > empty * strongest ? cross[k] * std::conj(by[k]) : 0;
    const double squares = square(cross[k]);
    cross[k] = squares > 0 ? cross[k] * float(1 / std::sqrt(squares)) : 0;
  }
  return transform.inverse(cross);
}

constexpr double longest_overlapped = 600; // s; beyond, overlapping windows cost time and tell little more

/// The peak of either polarity in one window's correlation, when it is clear. @param first  lag at its begin, samples
std::optional<DelayPoint> clear_peak(SignalView correlation, std::ptrdiff_t first, double time, int rate,
                                     double least) {
  const auto height = [](double value) { return std::abs(value); };
  const auto peak = size_t(std::ranges::max_element(correlation, {}, height) - correlation.begin());
  const double rms = std::sqrt(power(correlation));
  const double strength = rms > 0 ? height(correlation[peak]) / rms : 0;
  if (strength < least || peak == 0 || peak + 1 >= correlation.size())
    return std::nullopt;
  const double top =
      parabola_top(height(correlation[peak - 1]), height(correlation[peak]), height(correlation[peak + 1]));
  return DelayPoint{time, (double(first) + double(peak) + top) / rate, strength};
}

template <class View>
std::vector<DelayPoint> search_windows(View signal, View reference, int rate, const DelaySearch &search,
                                       const ProgressFn &progress) {
  const bool overlapped = double(reference.size()) <= longest_overlapped * rate;
  const auto window = size_t(search.window * rate), hop = overlapped ? size_t(search.hop * rate) : window;
  const auto first = std::ptrdiff_t(std::floor(search.earliest * rate));
  const auto lags = size_t((search.latest - search.earliest) * rate);
  const Transform transform(size_t(kiss_fftr_next_fast_size_real(int(window + lags))));
  std::vector<DelayPoint> points;
  for (size_t begin = 0; begin + window <= reference.size(); begin += hop) {
    const Signal by = excerpt(reference, std::ptrdiff_t(begin), window);
    const Signal part = excerpt(signal, std::ptrdiff_t(begin) + first, window + lags);
    const Signal correlation = correlate(transform, part, by);
    const double time = (double(begin) + double(window) / 2) / rate;
    if (const auto point = clear_peak(SignalView(correlation).first(lags), first, time, rate, search.least_strength))
      points.push_back(*point);
    if (progress)
      progress(begin + window, reference.size());
  }
  return points;
}

} // namespace

std::vector<DelayPoint> delay_points(SignalView signal, SignalView reference, int rate, const DelaySearch &search,
                                     const ProgressFn &progress) {
  return search_windows(signal, reference, rate, search, progress);
}

std::vector<DelayPoint> delay_points(SampleView signal, SampleView reference, int rate, const DelaySearch &search,
                                     const ProgressFn &progress) {
  return search_windows(signal, reference, rate, search, progress);
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
