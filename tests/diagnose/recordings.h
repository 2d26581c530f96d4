/// @file recordings.h  Hand-made calls: noise with the rhythm of speech, a delay, a room of 30 ms.
#pragma once

#include <cmath>
#include <cstdint>
#include <functional>
#include <random>
#include <vector>

#include "call/run.h"
#include "signal/signal.h"

namespace qv::tool::diagnose::test {

inline constexpr int rate = 8000; // Hz
inline constexpr double seconds = 24;
inline constexpr size_t length = size_t(seconds * rate);

/// Low-passed noise at about -26 dBov: syllables four times a second, a pause in every fourth second.
inline Signal talk(unsigned seed, double begin, double end) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal;
  Signal signal(length);
  double low = 0;
  for (size_t i = 0; i < length; ++i) {
    const double time = double(i) / rate;
    low += 0.6 * (normal(random) - low);
    const bool talks = time >= begin && time < end && std::fmod(time, 4) < 3.2;
    signal[i] = talks ? 0.1 * low * std::abs(std::sin(4 * 3.14159 * time)) : 0;
  }
  return signal;
}

inline Signal hiss(unsigned seed, double level_db) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal(0, gain_from_db(level_db));
  Signal signal(length);
  for (double &value : signal)
    value = normal(random);
  return signal;
}

/// The signal behind a delay (s, of time) that may lie between samples, with some decaying reflections.
inline Signal through_room(const Signal &signal, const std::function<double(double)> &delay, double gain = 0.7) {
  std::mt19937 random(7);
  std::normal_distribution<double> normal;
  std::vector<double> taps = {1};
  for (size_t k = 1; k < size_t(0.03 * rate); ++k)
    taps.push_back(k % 3 == 0 ? 0.3 * normal(random) * std::exp(-double(k) / (0.008 * rate)) : 0);
  Signal echo(length);
  for (size_t i = 0; i < length; ++i) {
    const double place = double(i) - delay(double(i) / rate) * rate;
    const auto whole = std::ptrdiff_t(std::floor(place));
    const double part = place - double(whole);
    for (size_t k = 0; k < taps.size(); ++k) {
      const std::ptrdiff_t at = whole - std::ptrdiff_t(k);
      if (taps[k] != 0 && at >= 0 && size_t(at) + 1 < length)
        echo[i] += gain * taps[k] * std::lerp(signal[size_t(at)], signal[size_t(at) + 1], part);
    }
  }
  return echo;
}

struct Recording {
  Setup setup = make_setup(std::nullopt, rate, 20);
  Signal ref = talk(1, 0.5, 16);
  Signal near = talk(2, 17, 23.5);
  Signal mic;

  /// The call with an echo of this delay.
  explicit Recording(const std::function<double(double)> &delay = [](double) { return 0.08; }) {
    mic = through_room(ref, delay);
    add(near);
    add(hiss(3, -66));
  }
  void add(const Signal &part) {
    for (size_t i = 0; i < length; ++i)
      mic[i] += part[i];
  }
};

} // namespace qv::tool::diagnose::test
