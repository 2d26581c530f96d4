#include "measure/quality.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace qv::tool::measure {

std::optional<double> segmental_snr_db(SignalView clean, SignalView processed, int rate) {
  const auto length = size_t(rate / 50);
  double sum = 0;
  int count = 0;
  for (size_t begin = 0; begin + length <= std::min(clean.size(), processed.size()); begin += length) {
    double signal = 0, error = 0;
    for (size_t i = begin; i < begin + length; ++i) {
      signal += clean[i] * clean[i];
      error += (clean[i] - processed[i]) * (clean[i] - processed[i]);
    }
    if (signal == 0)
      continue;
    sum += std::clamp(error > 0 ? 10 * std::log10(signal / error) : 35.0, -10.0, 35.0);
    ++count;
  }
  return count > 0 ? std::optional(sum / count) : std::nullopt;
}

std::optional<double> si_sdr_db(SignalView clean, SignalView processed) {
  const double cross = std::inner_product(clean.begin(), clean.end(), processed.begin(), 0.0);
  const double clean_energy = energy(clean);
  if (clean_energy == 0 || energy(processed) == 0)
    return std::nullopt;
  const double scale = cross / clean_energy;
  double error = 0;
  for (size_t i = 0; i < clean.size(); ++i)
    error += (scale * clean[i] - processed[i]) * (scale * clean[i] - processed[i]);
  return error > 0 ? to_db(scale * scale * clean_energy / error) : std::nullopt;
}

Quality quality(SignalView clean, SignalView processed, int rate) {
  return {segmental_snr_db(clean, processed, rate), si_sdr_db(clean, processed), estoi(clean, processed, rate)};
}

} // namespace qv::tool::measure
