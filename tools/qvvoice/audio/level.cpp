#include "audio/level.h"

#include <cmath>
#include <limits>

namespace qv::tool {

void LevelMeter::add(std::span<const int16_t> samples) {
  for (const int16_t sample : samples) {
    energy_ += double(sample) * sample;
    clipped_ += sample == INT16_MAX || sample == INT16_MIN;
  }
  count_ += samples.size();
}

double LevelMeter::dbfs() const {
  if (!(energy_ > 0))
    return -std::numeric_limits<double>::infinity();
  return 10 * std::log10(energy_ / double(count_) / (32768.0 * 32768.0));
}

} // namespace qv::tool
