#include "qvvoice/dsp/math.h"

#include <bit>
#include <cmath>
#include <numbers>

#include "dsp/fma.h"

float VOICE_Rand(uint32_t *seed, float amp) {
  *seed = *seed * 1664525u + 1013904223u;
  const uint32_t mantissa = *seed & 0x7fffffu;
  const float one_to_two = std::bit_cast<float>(0x3f800000u | mantissa);
  // A uniform variable on [-0.5, 0.5) has the standard deviation 1/sqrt(12) = 1/3.4641.
  return float(double(one_to_two - 1.5f) * (double(amp) * 3.4642));
}

uint32_t VOICE_Ilog2(uint32_t x) { return x == 0 ? 0 : uint32_t(std::bit_width(x)) - 1; }

uint32_t VOICE_Ilog4(uint32_t x) { return VOICE_Ilog2(x) / 2; }

float VOICE_Cos(float x) {
  const auto polynomial = [](float t) {
    return qv::fma(t, qv::fma(t, qv::fma(t, -0.0012712094f, 0.041487746f), -0.49991244f), 0.9999933f);
  };
  if (double(x) < 1.5707963268)
    return polynomial(x * x);
  const auto y = float(std::numbers::pi - double(x));
  return -polynomial(y * y);
}

float VOICE_Qcurve(float x) { return 1.f / (0.15f / x + 1.f); }

float VOICE_DeltaDb2Gain(float db) { return float(std::pow(10.0, double(db / 20.f))); }
