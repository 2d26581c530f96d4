/// @file recordings.h  Hand-made calls: noise with the rhythm of speech, a delay, a room of 30 ms.
#pragma once

#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include "call/run.h"
#include "signal/signal.h"

namespace qv::tool::diagnose::test {

inline constexpr int rate = 8000; // Hz
inline constexpr double seconds = 24;
inline constexpr size_t length = size_t(seconds * rate);

using Delay = std::function<double(double)>; ///< s, of time in s

inline double steady(double) { return 0.08; }

inline Signal hiss(unsigned seed, double level_db) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal(0, gain_from_db(level_db));
  Signal signal(length);
  for (double &value : signal)
    value = normal(random);
  return signal;
}

/// Low-passed noise at about -26 dBov: syllables four times a second, a pause in every fourth second.
inline Signal talk(unsigned seed, double begin, double end) {
  Signal signal = hiss(seed, 0);
  double low = 0;
  for (size_t i = 0; i < length; ++i) {
    const double time = double(i) / rate;
    low += 0.6 * (signal[i] - low);
    const bool talks = time >= begin && time < end && std::fmod(time, 4) < 3.2;
    signal[i] = talks ? 0.1 * low * std::abs(std::sin(4 * 3.14159 * time)) : 0;
  }
  return signal;
}

inline void add(Signal &signal, const Signal &part, double gain = 1) {
  for (size_t i = 0; i < signal.size(); ++i)
    signal[i] += gain * part[i % part.size()];
}

/// The signal behind a delay that may lie between samples, with some decaying reflections.
inline Signal through_room(const Signal &signal, const Delay &delay = steady) {
  const Signal reflections = hiss(7, 0);
  Signal echo(length);
  for (size_t i = 0; i < length; ++i) {
    const double place = double(i) - delay(double(i) / rate) * rate, part = place - std::floor(place);
    auto at = std::ptrdiff_t(std::floor(place));
    for (size_t k = 0; k < size_t(0.03 * rate); k += 3, at -= 3)
      if (at >= 0 && size_t(at) + 1 < length)
        echo[i] += 0.7 * (k == 0 ? 1 : 0.3 * reflections[k] * std::exp(-double(k) / (0.008 * rate))) *
                   std::lerp(signal[size_t(at)], signal[size_t(at) + 1], part);
  }
  return echo;
}

struct Recording {
  Setup setup;
  Signal ref = talk(1, 0.5, 16), mic;

  /// The call with an echo of this delay; the near end talks behind the far end.
  explicit Recording(const Delay &delay = steady, const char *preset = "balanced-8k-20ms")
      : setup(make_setup(preset, rate, 20)), mic(through_room(ref, delay)) {
    add(mic, talk(2, 17, 23.5));
    add(mic, hiss(3, -66));
  }
};

} // namespace qv::tool::diagnose::test
