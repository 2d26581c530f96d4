// The same signal at another rate, where libsoxr is not at hand.

#include "signal/resample.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace qv::tool {
namespace {

constexpr int zero_crossings = 48; ///< of the sinc, to either side: a transition of 4 % of the lower rate
constexpr double rolloff = 0.96;   ///< of the lower rate's half: where the passband ends
constexpr int table_steps = 512; ///< of the kernel between two zero crossings; straight lines between, -100 dB of error

/// Four-term Blackman-Harris window, side lobes below -92 dB (F. J. Harris 1978). @param x  0 in the middle .. 1 at the
/// end
double window(double x) {
  const double turn = std::numbers::pi * x;
  return 0.35875 + 0.48829 * std::cos(turn) + 0.14128 * std::cos(2 * turn) + 0.01168 * std::cos(3 * turn);
}

/// Right half of the windowed sinc, by steps.
const Signal &kernel() {
  static const Signal table = [] {
    Signal values(size_t(zero_crossings * table_steps) + 2);
    values[0] = 1;
    for (size_t i = 1; i < values.size() - 2; ++i) {
      const double x = double(i) / table_steps;
      values[i] = std::sin(std::numbers::pi * x) / (std::numbers::pi * x) * window(x / zero_crossings);
    }
    return values;
  }();
  return table;
}

} // namespace

/// Band-limited interpolation (J. O. Smith, "Digital audio resampling home page", 2002).
Signal resample(SignalView signal, int from, int to) {
  const double width = std::min(1.0, double(to) / from) * rolloff; // zero crossings per input sample
  const auto reach = std::ptrdiff_t(std::ceil(zero_crossings / width));
  Signal out(size_t(std::llround(double(signal.size()) * to / from)));
  for (size_t i = 0; i < out.size(); ++i) {
    const double place = double(i) * from / to;
    const auto centre = std::ptrdiff_t(place);
    const auto first = std::max<std::ptrdiff_t>(centre - reach + 1, 0);
    const auto last = std::min<std::ptrdiff_t>(centre + reach, std::ssize(signal) - 1);
    double sum = 0;
    for (std::ptrdiff_t k = first; k <= last; ++k) {
      const double x = std::min(std::abs(place - double(k)) * width, double(zero_crossings)) * table_steps;
      const auto step = size_t(x);
      sum += signal[size_t(k)] * std::lerp(kernel()[step], kernel()[step + 1], x - double(step));
    }
    out[i] = sum * width;
  }
  return out;
}

} // namespace qv::tool
