/// @file talk.h  Talkers and rooms for the tests of the state-space echo canceller.
#pragma once

#include <numbers>

#include "support.h"

namespace qv::test {

using Signal = std::vector<float>;

/// Mean square of a stretch, dB over one sample unit.
template <class Sound> double level_db(const Sound &sound, size_t first, size_t last) {
  double sum = 0;
  for (size_t i = first; i < last; ++i)
    sum += double(sound.at(i)) * double(sound.at(i));
  return last > first ? 10 * std::log10(sum / double(last - first) + 1e-3) : NAN;
}

inline Signal white(size_t count, float rms, uint32_t seed) {
  return noise_values(seed, count, rms * std::numbers::sqrt3_v<float>);
}

/// Pitch pulses or breath through two resonances that move from syllable to syllable; every third syllable a pause.
inline Signal talk(size_t count, int32_t rate, float rms, uint32_t seed) {
  std::minstd_rand random(seed + 1);
  const auto between = [&](float least, float most) {
    return std::uniform_real_distribution<float>(least, most)(random);
  };
  Signal out(count);
  float y[2][2] = {};
  for (size_t begin = 0; begin < count;) {
    const auto length = size_t(between(0.1f, 0.3f) * float(rate));
    const float pitch = between(0.004f, 0.01f) * float(rate);
    size_t pulse = 0;
    const bool pause = begin > 0 && random() % 3 == 0, voiced = random() % 4 != 0;
    const float hertz[] = {between(250, 800), between(900, 2600)};
    for (size_t i = 0; i < length && begin + i < count; ++i) {
      float x = between(-1, 1) * (voiced ? 0.1f : 1);
      if (voiced && i == pulse) {
        x += 6;
        pulse += size_t(pitch * between(0.97f, 1.03f));
      }
      for (int32_t r = 0; r < 2; ++r) {
        const float radius = r == 0 ? 0.96f : 0.93f, turn = 2 * std::numbers::pi_v<float> * hertz[r] / float(rate);
        x += 2 * radius * std::cos(turn) * y[r][0] - radius * radius * y[r][1];
        y[r][1] = std::exchange(y[r][0], x);
      }
      out[begin + i] = pause ? 0 : x * std::sin(std::numbers::pi_v<float> * float(i) / float(length));
    }
    begin += length;
  }
  const auto scale = float(rms / std::pow(10, level_db(out, 0, count) / 20));
  for (float &x : out)
    x *= scale;
  return out;
}

/// A sparse, decaying response.
struct Room {
  std::vector<std::pair<size_t, float>> taps; ///< delay in samples, and gain

  /// @param delay_ms  of its first and highest tap  @param gain  root of its energy  @param length  in seconds
  Room(int32_t rate, double delay_ms, float gain, uint32_t seed, double length = 0.06) {
    constexpr size_t count = 60;
    const Signal heights = white(count, 1, seed), places = noise_values(seed + 99, count, 1);
    const double first = delay_ms * rate / 1000, spread = length * rate;
    float energy = 0;
    for (size_t k = 0; k < count; ++k) {
      const float place = k == 0 ? 0 : std::fabs(places[k]);
      taps.emplace_back(size_t(first + place * spread), k == 0 ? 2 : heights[k] * std::exp(-4 * place));
      energy += taps.back().second * taps.back().second;
    }
    for (auto &tap : taps)
      tap.second *= gain / std::sqrt(energy);
  }

  Signal echo(const Signal &far) const {
    Signal out(far.size());
    for (const auto &[delay, gain] : taps)
      for (size_t i = delay; i < far.size(); ++i)
        out[i] += gain * far[i - delay];
    return out;
  }
};

inline Signal operator+(Signal a, const Signal &b) {
  for (size_t i = 0; i < a.size(); ++i)
    a[i] += b.at(i);
  return a;
}

inline Samples sampled(const Signal &x) {
  Samples out;
  for (const float value : x)
    out.push_back(int16_t(std::lround(std::clamp(value, -32768.f, 32767.f))));
  return out;
}

} // namespace qv::test
