#include "qvvoice/dsp/vector.h"

#include <algorithm>
#include <cstdlib>

#include "dsp/fma.h"

float VOICE_VecMean(const float *v, int32_t first, int32_t last) {
  const int32_t count = last - first + 1;
  return VOICE_VecSum(v + first, count) / float(count);
}

float VOICE_VecSum(const float *v, int32_t count) {
  float sum = 0;
  for (int32_t i = 0; i < count; ++i)
    sum += v[i];
  return sum;
}

float VOICE_VecAbsMax(const int16_t *v, int32_t count) {
  int32_t largest = std::abs(int32_t(v[0]));
  for (int32_t i = 1; i < count; ++i)
    largest = std::max(largest, std::abs(int32_t(v[i])));
  return float(largest);
}

float VOICE_VecMax(const float *v, int32_t count) { return *std::max_element(v, v + std::max(count, 1)); }

float VOICE_VvMultAdd(const float *a, const float *b, int32_t count, float acc) {
  for (int32_t i = 0; i < count; ++i)
    acc = qv::accumulate(a[i], b[i], acc);
  return acc;
}

float VOICE_VvMultAdd16(const int16_t *a, const int16_t *b, int32_t count) {
  float sum = 0;
  for (int32_t i = 0; i < count; ++i)
    sum += float(int32_t(a[i]) * b[i]);
  return sum;
}
