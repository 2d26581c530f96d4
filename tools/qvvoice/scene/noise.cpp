#include "scene/noise.h"

namespace qv::tool::scene {

Signal white_noise(size_t count, Random random) {
  Signal noise(count);
  for (double &value : noise)
    value = random.normal();
  return noise;
}

Signal pink_noise(size_t count, Random random) {
  // First-order low-passes with corners an octave or two apart, weighted so that their sum falls by 3 dB per
  // octave (Kellet 1999).
  struct {
    double pole, weight, state = 0;
  } stages[] = {{0.99886, 0.0555179}, {0.99332, 0.0750759}, {0.96900, 0.1538520},
                {0.86650, 0.3104856}, {0.55000, 0.5329522}, {-0.7616, -0.0168980}};
  double last = 0;
  Signal noise(count);
  for (double &value : noise) {
    const double white = random.normal();
    value = last + 0.5362 * white;
    for (auto &stage : stages)
      value += stage.state = stage.pole * stage.state + stage.weight * white;
    last = 0.115926 * white;
  }
  return noise;
}

} // namespace qv::tool::scene
