// Signals and paths that the echo canceller's tests are made of. Everything is deterministic.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <ostream>
#include <span>
#include <vector>

#include "qvvoice/aec/aec.h"
#include "qvvoice/dsp/fft.h"
#include "qvvoice/dsp/filter_bank.h"
#include "qvvoice/dsp/math.h"

struct Layout {
  int32_t rate, n; // Hz, samples per frame
  int32_t bands() const { return rate == 8000 ? 24 : 32; }
  int32_t samples(double seconds) const { return int32_t(seconds * rate) / n * n; }
};
constexpr Layout layouts[] = {{8000, 128}, {8000, 160}, {16000, 256}, {16000, 320}};
inline std::ostream &operator<<(std::ostream &os, Layout l) { return os << l.rate << " Hz / " << l.n << " "; }

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN(), infinity = std::numeric_limits<float>::infinity();

using Samples = std::vector<int16_t>;
using Signal = std::vector<float>;

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
  float low[2] = {}, high[2] = {};
  for (int32_t i = 0; i < length; ++i) {
    const auto resonate = [&](float(&y)[2], float hz) {
      const float value = 0.1f * out[size_t(i)] + 2 * radius * std::cos(step * hz) * y[0] - radius * radius * y[1];
      y[1] = y[0];
      return y[0] = value;
    };
    const float syllable = std::max(0.f, 0.3f + std::sin(step * 4.f * float(i)));
    out[size_t(i)] = 1.3f * rms * syllable * (resonate(low, 600.f) + resonate(high, 1800.f) + 0.2f * out[size_t(i)]);
  }
  return out;
}

// Decaying random response of `taps` taps; the echo has about `gain` times the reference's amplitude.
inline Signal room(int32_t taps, float gain, uint32_t seed) {
  Signal path = white_noise(taps, 1.f, seed);
  float energy = 0;
  for (int32_t k = 0; k < taps; ++k) {
    path[size_t(k)] *= std::exp(-5.f * float(k) / float(taps));
    energy += path[size_t(k)] * path[size_t(k)];
  }
  for (float &h : path)
    h *= gain / std::sqrt(energy);
  return path;
}

inline Signal through(const Signal &path, const Signal &x) {
  Signal y(x.size(), 0.f);
  for (size_t i = 0; i < x.size(); ++i)
    for (size_t k = 0; k < std::min(path.size(), i + 1); ++k)
      y[i] += path[k] * x[i - k];
  return y;
}

inline Signal operator+(Signal a, const Signal &b) {
  for (size_t i = 0; i < a.size(); ++i)
    a[i] += b[i];
  return a;
}

inline Samples sampled(const Signal &x) {
  Samples out;
  for (const float value : x)
    out.push_back(int16_t(std::lround(std::clamp(value, -32768.f, 32767.f))));
  return out;
}

// Energy of x[from, to), seconds; one unit added for silence.
template <class T> double energy(const std::vector<T> &x, Layout layout, double from, double to) {
  double sum = 1;
  for (int32_t i = layout.samples(from); i < layout.samples(to); ++i)
    sum += double(x[size_t(i)]) * double(x[size_t(i)]);
  return sum;
}

template <class T, class U>
double reduction_db(const std::vector<T> &in, const std::vector<U> &out, Layout layout, double from, double to) {
  return 10 * std::log10(energy(in, layout, from, to) / energy(out, layout, from, to));
}

// Arrays of a state record.
using Memories = std::vector<std::span<float>>;

inline void append(Memories &all, std::initializer_list<float *> arrays, int32_t count) {
  for (float *array : arrays)
    all.emplace_back(array, size_t(count));
}

inline bool all_finite(const Memories &memories) {
  const auto finite = [](std::span<float> m) {
    return std::ranges::all_of(m, [](float x) { return std::isfinite(x); });
  };
  return !memories.empty() && std::ranges::all_of(memories, finite);
}

// The transforms and the filter bank of a layout, shared by everything that is alive.
struct Services {
  explicit Services(Layout layout) {
    if (users++ > 0)
      return;
    VOICE_FftInit();
    VOICE_SignalInit(layout.rate, layout.bands(), layout.n);
  }
  ~Services() {
    if (--users > 0)
      return;
    VOICE_FftDestroy();
    VOICE_SignalDestroy();
  }
  Services(const Services &) = delete;
  Services &operator=(const Services &) = delete;
  static inline int32_t users = 0;
};
