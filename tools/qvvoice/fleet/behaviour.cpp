#include "fleet/behaviour.h"

#include <set>

#include "fleet/result.h"
#include "scene/noise.h"
#include "support/checksum.h"

namespace qv::tool::fleet {
namespace {

/// Far end alone, both, near end alone, nobody; the echo 50 ms late.
measure::Subject made_call(int rate) {
  const auto count = size_t(6 * rate), delay = size_t(rate / 20);
  const Signal far = scene::white_noise(count, scene::Random(1)), near = scene::white_noise(count, scene::Random(2));
  const Signal noise = scene::white_noise(count, scene::Random(3));
  measure::Subject subject{"behaviour", rate, {}, {}, Signal(count), Signal(count), scene::Truth(), Signal(count)};
  Signal ref(count), mic(count);
  for (size_t i = 0; i < count; ++i) {
    const double t = double(i) / rate;
    ref[i] = t < 4 ? 0.05 * far[i] : 0;
    (*subject.echo)[i] = i >= delay ? 0.5 * ref[i - delay] : 0;
    (*subject.near)[i] = t >= 3 && t < 5 ? 0.03 * near[i] : 0;
    (*subject.noise)[i] = 1e-3 * noise[i];
    mic[i] = (*subject.echo)[i] + (*subject.near)[i] + (*subject.noise)[i];
  }
  subject.ref = to_samples(ref);
  subject.mic = to_samples(mic);
  *subject.truth = {std::vector<Interval>{{0.05, 4}}, std::vector<Interval>{{3, 5}}, {{0, 0.05, 0}}, {}};
  return subject;
}

} // namespace

std::string behaviour(const std::vector<Setup> &setups) {
  std::set<std::pair<int, int>> layouts;
  std::string text;
  for (const Setup &setup : setups)
    if (layouts.emplace(setup.rate, setup.frame_len).second) {
      const measure::Subject call = made_call(setup.rate);
      text += result_of(measure::Known(call), {}, setup).dump();
    }
  return checksum_of(text);
}

} // namespace qv::tool::fleet
