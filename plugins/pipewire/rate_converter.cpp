#include "rate_converter.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

namespace qv::pipewire {

namespace {

constexpr double stop_db = 80;
constexpr double pass_edge = 0.85; ///< of the lower Nyquist frequency; the stop band begins at 1
// Kaiser and Schafer 1980: shape of the window, and its length for a transition of `width` rad per sample.
constexpr double kaiser_shape = 0.1102 * (stop_db - 8.7);
double kaiser_length(double width) { return (stop_db - 7.95) / (2.285 * width); }

/// Low-pass filter of `length` taps at `rate` Hz for a stop band from `stop` Hz on.
std::vector<double> low_pass(int length, double rate, double stop) {
  const double cutoff = (1 + pass_edge) * stop / rate; // in cycles per two samples
  const double middle = (length - 1) / 2.;
  std::vector<double> taps(static_cast<size_t>(length), 1.);
  for (int i = 0; i < length && length > 1; ++i) {
    const double t = i - middle, x = std::numbers::pi * cutoff * t;
    const double window = std::sqrt(std::max(0., 1 - t * t / (middle * middle)));
    taps[size_t(i)] = (t == 0 ? 1 : std::sin(x) / x) * std::cyl_bessel_i(0., kaiser_shape * window);
  }
  return taps;
}

} // namespace

RateConverter::RateConverter(int from, int to, int most_count) {
  const int common = std::gcd(from, to);
  up_ = to / common;
  down_ = from / common;
  most_out_ = (most_count * up_ + down_ - 1) / down_ + 1;
  const double stop = std::min(from, to) / 2.;
  taps_ = from == to ? 1 : int(std::ceil(kaiser_length(2 * std::numbers::pi * (1 - pass_edge) * stop / from)));
  delay_ = (taps_ * up_ - 1) / 2. / up_ / from;

  const auto taps = low_pass(taps_ * up_, double(from) * up_, stop);
  phase_.resize(taps.size());
  for (int p = 0; p < up_; ++p) {
    double sum = 0; // unity gain in every phase: a constant stays one
    for (int k = 0; k < taps_; ++k)
      sum += taps[size_t(p + k * up_)];
    for (int k = 0; k < taps_; ++k)
      phase_[size_t(p * taps_ + taps_ - 1 - k)] = float(taps[size_t(p + k * up_)] / sum);
  }
  heard_.resize(size_t(taps_ - 1 + most_count));
}

int RateConverter::process(const float *in, int count, float *out) noexcept {
  std::copy_n(in, count, heard_.begin() + taps_ - 1);
  int made = 0;
  for (; next_ < count * up_; next_ += down_) {
    const float *x = &heard_[size_t(next_ / up_)], *h = &phase_[size_t(next_ % up_ * taps_)];
    out[made++] = std::inner_product(h, h + taps_, x, 0.f);
  }
  next_ -= count * up_;
  std::copy_n(heard_.begin() + count, taps_ - 1, heard_.begin());
  return made;
}

void RateConverter::reset() noexcept {
  std::fill(heard_.begin(), heard_.end(), 0.f);
  next_ = 0;
}

} // namespace qv::pipewire
