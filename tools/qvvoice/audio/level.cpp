#include "audio/level.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace qv::tool {

double level_dbfs(std::span<const int16_t> samples) {
  double energy = 0;
  for (const int16_t sample : samples)
    energy += double(sample) * sample;
  if (!(energy > 0))
    return -std::numeric_limits<double>::infinity();
  return 10 * std::log10(energy / double(samples.size()) / (32768.0 * 32768.0));
}

size_t count_clipped(std::span<const int16_t> samples) {
  return size_t(std::count_if(samples.begin(), samples.end(),
                              [](int16_t sample) { return sample == INT16_MAX || sample == INT16_MIN; }));
}

} // namespace qv::tool
