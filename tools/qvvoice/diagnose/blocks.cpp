#include "diagnose/blocks.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace qv::tool::diagnose {

BlockAnalyser::BlockAnalyser(int rate) : length_(block_length(rate)), transform_(length_), window_(length_) {
  const double scale = std::sqrt(8.0 / 3.0) / double(length_);
  for (size_t i = 0; i < length_; ++i)
    window_[i] = scale * 0.5 * (1 - std::cos(2 * std::numbers::pi * double(i) / double(length_)));
}

Spectrum BlockAnalyser::spectrum(SignalView signal, std::ptrdiff_t begin) const {
  Signal part = excerpt(signal, begin, length_);
  for (size_t i = 0; i < length_; ++i)
    part[i] *= window_[i];
  Spectrum spectrum = transform_.forward(part);
  std::fill_n(spectrum.begin(), 2, 0); // direct current and what its window makes of it
  return spectrum;
}

double total(const Spectrum &spectrum, size_t first) {
  double sum = 0;
  for (size_t k = first; k < spectrum.size(); ++k)
    sum += 2 * double(std::norm(spectrum[k]));
  return sum;
}

double nearest_delay(const std::vector<DelayPoint> &points, double time) {
  if (points.empty())
    return 0;
  const auto distance = [time](const DelayPoint &point) { return std::abs(point.time - time); };
  return std::ranges::min_element(points, {}, distance)->delay;
}

} // namespace qv::tool::diagnose
