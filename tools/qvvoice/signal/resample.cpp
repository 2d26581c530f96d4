#include "signal/resample.h"

#include <cmath>
#include <stdexcept>

#include <fmt/format.h>
#include <soxr.h>

namespace qv::tool {

Signal resample(SignalView signal, int from, int to) {
  Signal out(size_t(std::ceil(double(signal.size()) * to / from)));
  const soxr_io_spec_t types = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
  size_t written = 0;
  if (const char *error = soxr_oneshot(from, to, 1, signal.data(), signal.size(), nullptr, out.data(), out.size(),
                                       &written, &types, &quality, nullptr))
    throw std::runtime_error(fmt::format("conversion from {} to {} Hz failed: {}", from, to, error));
  out.resize(written);
  return out;
}

} // namespace qv::tool
