#include "signal/signal.h"

#include <algorithm>
#include <cmath>

#include "dsp/sample.h"

namespace qv::tool {

Signal to_signal(std::span<const int16_t> samples) {
  Signal signal(samples.size());
  std::ranges::transform(samples, signal.begin(), [](int16_t sample) { return sample / 32768.0; });
  return signal;
}

std::vector<int16_t> to_samples(SignalView signal) {
  std::vector<int16_t> samples(signal.size());
  std::ranges::transform(signal, samples.begin(), [](double value) { return to_sample(float(value * 32768.0)); });
  return samples;
}

double energy(SignalView signal) {
  double sum = 0;
  for (const double value : signal)
    sum += value * value;
  return sum;
}

double power(SignalView signal) { return signal.empty() ? 0 : energy(signal) / double(signal.size()); }

std::optional<double> to_db(double power) { return power > 0 ? std::optional(10 * std::log10(power)) : std::nullopt; }

double from_db(double db) { return std::pow(10, db / 10); }

double gain_from_db(double db) { return std::pow(10, db / 20); }

void scale(Signal &signal, double gain) {
  for (double &value : signal)
    value *= gain;
}

Signal excerpt(SignalView signal, std::ptrdiff_t begin, size_t count) {
  Signal part(count);
  const auto size = std::ptrdiff_t(signal.size());
  for (size_t i = 0; i < count; ++i)
    if (const auto at = begin + std::ptrdiff_t(i); at >= 0 && at < size)
      part[i] = signal[size_t(at)];
  return part;
}

double quantile(std::vector<double> values, double quantile) {
  std::ranges::sort(values);
  const double place = quantile * double(values.size() - 1);
  const auto below = size_t(place);
  const size_t above = std::min(below + 1, values.size() - 1);
  return std::lerp(values[below], values[above], place - double(below));
}

} // namespace qv::tool
