#include "para/bands.h"

#include <algorithm>

#include "config/fields.h"
#include "dsp/bark.h"

namespace qv::tool::para {

double band_hz(int32_t rate, double band) {
  const double last = band_count(rate) - 1;
  const double wanted = bark(float(rate) * 0.5f) * std::clamp(band, 0.0, last) / last;
  double low = 0, high = rate * 0.5;
  while (high - low > 0.01) {
    const double middle = (low + high) / 2;
    (bark(float(middle)) < wanted ? low : high) = middle;
  }
  return (low + high) / 2;
}

HzRange group_range(int32_t rate, int32_t group) {
  return {band_hz(rate, 4 * group - 0.5), band_hz(rate, 4 * group + 3.5)};
}

} // namespace qv::tool::para
