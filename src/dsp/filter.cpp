#include "qvvoice/dsp/filter.h"

#include "dsp/fma.h"

namespace {

template <class Sample> void preemphasis(const Sample *in, float *memory, float *out, int32_t count, float coef) {
  float previous = *memory;
  for (int32_t i = 0; i < count; ++i) {
    const auto x = float(in[i]);
    out[i] = qv::fma(-previous, coef, x);
    previous = x;
  }
  *memory = previous;
}

} // namespace

void VOICE_FilterDcNotch16(const int16_t *in, float *out, int32_t count, float *memory, int32_t stride, float radius) {
  const float squared = radius * radius;
  const float rest = 1.f - radius;
  const auto den2 = float(double(squared) + 0.7 * double(rest) * double(rest));
  for (int32_t i = 0; i < count; ++i) {
    const auto v = float(in[i * stride]);
    const float u = v + memory[0];
    out[i] = radius * u;
    memory[0] = 2.f * (radius * u - v) + memory[1];
    memory[1] = v - den2 * u;
  }
}

void VOICE_FilterPreemph(const float *in, float *memory, float *out, int32_t count, float coef) {
  preemphasis(in, memory, out, count, coef);
}

void VOICE_FilterPreemph16(const int16_t *in, float *memory, float *out, int32_t count, float coef) {
  preemphasis(in, memory, out, count, coef);
}
