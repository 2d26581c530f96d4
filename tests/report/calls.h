/// @file calls.h  Calls to make pages of.
#pragma once

#include <cmath>
#include <numbers>
#include <random>

#include "measure/subject.h"

namespace qv::tool::report::test {

inline constexpr int rate = 8000; // Hz
inline constexpr double tone_amplitude = 0.25;

struct Call {
  int rate;
  std::vector<int16_t> mic, ref;

  measure::Subject subject() const { return {"call", rate, mic, ref, {}, {}, {}}; }
};

/// Microphone: 1 kHz from 1 to 2 s. Reference: 3 kHz from 2 to 3 s.
inline Call tones(double seconds) {
  Call call{rate, {}, {}};
  for (size_t i = 0; i < size_t(seconds * rate); ++i) {
    const double time = double(i) / rate;
    const auto tone = [&](double from, double hz) {
      const double value = 32767 * tone_amplitude * std::sin(2 * std::numbers::pi * hz * time);
      return int16_t(time >= from && time < from + 1 ? std::lround(value) : 0);
    };
    call.mic.push_back(tone(1, 1000));
    call.ref.push_back(tone(2, 3000));
  }
  return call;
}

/// Loud noise on both sides: what packs worst.
inline Call noise(double seconds, int at_rate) {
  Call call{at_rate, {}, {}};
  std::mt19937 random(1);
  std::normal_distribution<double> normal(0, 1000);
  for (size_t i = 0; i < size_t(seconds * at_rate); ++i) {
    call.mic.push_back(int16_t(normal(random)));
    call.ref.push_back(int16_t(normal(random)));
  }
  return call;
}

} // namespace qv::tool::report::test
