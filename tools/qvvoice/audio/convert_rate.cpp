#include "audio/audio.h"
#include "audio/full_scale.h"
#include "signal/resample.h"
#include "support/error.h"

namespace qv::tool {

void convert_rate(Recording &recording, int rate) {
  Audio &audio = recording.audio;
  if (audio.rate == rate)
    return;
  const Signal converted = resample(to_signal(audio.samples), audio.rate, rate);
  if (converted.empty())
    throw InputError("{}: too short: {} samples at {} Hz are not one sample at {} Hz", recording.path,
                     audio.samples.size(), audio.rate, rate);
  audio = {rate, {}};
  audio.samples.reserve(converted.size());
  for (const double sample : converted)
    audio.samples.push_back(from_full_scale(sample, recording.clipped));
}

} // namespace qv::tool
