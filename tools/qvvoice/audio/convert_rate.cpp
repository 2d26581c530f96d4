#include "audio/audio.h"

#include <cmath>
#include <stdexcept>

#include <fmt/format.h>
#include <soxr.h>

#include "audio/full_scale.h"

namespace qv::tool {

void convert_rate(Recording &recording, int rate) {
  Audio &audio = recording.audio;
  if (audio.rate == rate)
    return;
  const std::vector<double> in(audio.samples.begin(), audio.samples.end());
  std::vector<double> out(size_t(std::ceil(double(in.size()) * rate / audio.rate)));
  const soxr_io_spec_t types = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
  size_t written = 0;
  if (const char *error = soxr_oneshot(audio.rate, rate, 1, in.data(), in.size(), nullptr, out.data(), out.size(),
                                       &written, &types, &quality, nullptr))
    throw std::runtime_error(fmt::format("conversion from {} to {} Hz failed: {}", audio.rate, rate, error));
  out.resize(written);
  audio = {rate, {}};
  audio.samples.reserve(written);
  for (const double sample : out)
    audio.samples.push_back(from_full_scale(sample / 32768, recording.clipped));
}

} // namespace qv::tool
