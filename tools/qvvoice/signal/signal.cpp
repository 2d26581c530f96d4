#include "signal/signal.h"

#include <algorithm>
#include <cmath>
#include <functional>

#include "dsp/sample.h"

namespace qv::tool {

namespace {

template <class View, class Convert>
Signal converted_excerpt(View all, std::ptrdiff_t begin, size_t count, const Convert &convert) {
  Signal part(count);
  const auto size = std::ptrdiff_t(all.size()), length = std::ptrdiff_t(count);
  const std::ptrdiff_t first = std::clamp<std::ptrdiff_t>(-begin, 0, length);
  const std::ptrdiff_t end = std::clamp<std::ptrdiff_t>(size - begin, first, length);
  for (std::ptrdiff_t i = first; i < end; ++i)
    part[size_t(i)] = convert(all[size_t(begin + i)]);
  return part;
}

} // namespace

Signal to_signal(SampleView samples) { return excerpt(samples, 0, samples.size()); }

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
  return converted_excerpt(signal, begin, count, std::identity());
}

Signal excerpt(SampleView samples, std::ptrdiff_t begin, size_t count) {
  return converted_excerpt(samples, begin, count, [](int16_t sample) { return sample / 32768.0; });
}

double quantile(std::vector<double> values, double quantile) {
  const double place = quantile * double(values.size() - 1);
  const auto below = values.begin() + std::ptrdiff_t(place);
  std::ranges::nth_element(values, below);
  const auto above = std::min_element(below + 1, values.end());
  return above == values.end() ? *below : std::lerp(*below, *above, place - std::floor(place));
}

} // namespace qv::tool
