// Deterministic signals and echo paths of the echo canceller's tests.
#pragma once

#include <numeric>
#include <ranges>
#include <utility>

#include "config/fields.h"
#include "qvvoice/api/process.h"
#include "qvvoice/dsp/math.h"
#include "qvvoice/qvvoice.h"
#include "talk.h"

namespace qv::test {

inline int32_t samples(const Layout &layout, double seconds) {
  return int32_t(seconds * layout.rate) / layout.frame_len * layout.frame_len;
}

// The transforms and the filter bank of a layout, and a call with the default parameters.
inline void start(const Layout &layout) {
  const config::Image image = config::default_image(layout.rate);
  ASSERT_EQ(QV_VOICE_InitImage(image.data(), layout.rate, layout.frame_len), QV_VOICE_OK);
}

inline Signal white_noise(int32_t length, float rms, uint32_t seed) {
  Signal out(size_t(length), 0.f);
  for (float &x : out)
    x = VOICE_Rand(&seed, rms);
  return out;
}

// Noise through two resonances at 600 and 1800 Hz over a wide floor, in syllables of a quarter second.
inline Signal speech_like(int32_t length, int32_t rate, float rms, uint32_t seed) {
  Signal out = white_noise(length, 1.f, seed);
  const float step = 6.2831853f / float(rate), radius = 0.93f;
  float low[2] = {}, high[2] = {}, time = 0;
  for (float &x : out) {
    const auto resonate = [&](float(&y)[2], float hz) {
      y[1] = std::exchange(y[0], 0.1f * x + 2 * radius * std::cos(step * hz) * y[0] - radius * radius * y[1]);
      return y[0];
    };
    const float syllable = std::max(0.f, 0.3f + std::sin(step * 4.f * time++));
    x = 1.3f * rms * syllable * (resonate(low, 600.f) + resonate(high, 1800.f) + 0.2f * x);
  }
  return out;
}

inline Signal reference(bool speech, double seconds, const Layout &layout) {
  const int32_t length = samples(layout, seconds);
  return speech ? speech_like(length, layout.rate, 3000.f, 11) : white_noise(length, 3000.f, 12);
}

// Echo at -6 dB over a decaying random response of one and a half frames.
inline Signal echo_of(const Signal &x, const Layout &layout, uint32_t seed = 3) {
  Signal path = white_noise(layout.frame_len * 3 / 2, 1.f, seed), y(x.size(), 0.f);
  float energy = 0;
  for (size_t k = 0; k < path.size(); ++k) {
    path[k] *= std::exp(-5.f * float(k) / float(path.size()));
    energy += path[k] * path[k];
  }
  const float gain = 0.5f / std::sqrt(energy);
  for (size_t i = 0; i < x.size(); ++i)
    for (size_t k = 0; k < std::min(path.size(), i + 1); ++k)
      y[i] += gain * path[k] * x[i - k];
  return y;
}

using Memories = std::vector<std::span<float>>; // arrays of a state record
inline bool all_finite(const Memories &memories) {
  return std::ranges::all_of(memories | std::views::join, [](float x) { return std::isfinite(x); });
}

} // namespace qv::test
