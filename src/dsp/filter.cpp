#include "qvvoice/dsp/filter.h"

#include "dsp/fma.h"

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

// In place, an output replaces the input that the next one needs.
void VOICE_FilterPreemph(const float *in, float *memory, float *out, int32_t count, float coef) {
  for (int32_t i = 0; i < count; ++i) {
    const float x = in[i];
    out[i] = qv::fma(-*memory, coef, x);
    *memory = x;
  }
}

void VOICE_FilterPreemph16(const int16_t *in, float *memory, float *out, int32_t count, float coef) {
  if (count < 1)
    return;
  out[0] = qv::fma(-*memory, coef, float(in[0]));
  for (int32_t i = 1; i < count; ++i)
    out[i] = qv::fma(-float(in[i - 1]), coef, float(in[i]));
  *memory = float(in[count - 1]);
}
