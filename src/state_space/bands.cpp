#include "state_space/bands.h"

namespace qv::state_space {

Bands bands_of(const Shape &shape) {
  constexpr float least_width = 100, widening_from = 800; // Hz
  Bands bands;
  bands.edge[0] = 1;
  for (float hertz = least_width; hertz < float(shape.rate) / 2;
       hertz += least_width * std::max(1.f, hertz / widening_from))
    bands.edge[++bands.count] = shape.bin(hertz);
  bands.edge[++bands.count] = shape.n + 1;
  return bands;
}

void power_of(const SplitSpectrum &in, float factor, float *power, int32_t bins) {
  for (int32_t k = 0; k < bins; ++k)
    power[k] = factor * (in.re[k] * in.re[k] + in.im[k] * in.im[k]);
}

void means_of(const float *power, const Bands &bands, float *mean) {
  for (int32_t b = 0; b < bands.count; ++b) {
    float sum = 0;
    for (int32_t k = bands.edge[b]; k < bands.edge[b + 1]; ++k)
      sum += power[k];
    mean[b] = sum / float(bands.width(b));
  }
}

} // namespace qv::state_space
