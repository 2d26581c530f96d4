/// @file call.h  A call made by hand, and what is expected of its measures.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "measure/quality.h"
#include "measure/results.h"
#include "scene/noise.h"

namespace qv::tool::measure {

using scene::Random;
using scene::white_noise;
using R = Results;
using Intervals = std::vector<Interval>;

constexpr int rate = 8000;
constexpr size_t length = 20 * rate;

/// 20 s: nobody, far end from 2 s, near end from 8 s, both from 12 s, nobody from 18 s; stationary noises at -30 dBFS
/// (far), -30 dBFS (near) and -70 dBFS (background). The echo lags its reference by 50 ms.
struct Call {
  Signal near = white_noise(length, Random(2)), echo = white_noise(length, Random(1)), out;
  Signal noise = white_noise(length, Random(3));
  Subject subject{"hand", rate, {}, {}, {}, {}, scene::Truth()};

  Call() {
    for (size_t i = 0; i < length; ++i) {
      const double t = double(i) / rate;
      echo[i] *= (t >= 2 && t < 8) || (t >= 12 && t < 18) ? gain_from_db(-30) : 0;
      near[i] *= t >= 8 && t < 18 ? gain_from_db(-30) : 0;
      noise[i] *= gain_from_db(-70);
    }
    out = mix(0, 0);
    subject.ref = to_samples(excerpt(echo, rate / 20, length));
    subject.mic = to_samples(out);
    subject.near = near;
    subject.echo = echo;
    *subject.truth = {Intervals{{2, 8}, {12, 18}}, Intervals{{8, 18}}, {{0, 0.05, 0}}, {}};
  }

  Signal mix(double echo_db, double noise_db) const {
    Signal sum = near;
    for (size_t i = 0; i < length; ++i)
      sum[i] += gain_from_db(echo_db) * echo[i] + gain_from_db(noise_db) * noise[i];
    return sum;
  }

  /// Changes the output between two moments.
  void apply(double begin, double end, double db) {
    for (auto i = size_t(begin * rate); i < size_t(end * rate); ++i)
      out[i] *= gain_from_db(db);
  }

  Output output() const {
    Output output;
    output.sent = to_samples(out);
    output.plain = out;
    return output;
  }
  Results measured() const { return measure(subject, output()); }
};

struct Is {
  Value R::*value;
  double expected, tolerance;
  Is(Value R::*v, double e, double t = 0) : value(v), expected(e), tolerance(t) {}
};

inline const char *key_of(Value R::*value) { return std::ranges::find(measures(), value, &Measure::value)->key; }

inline void expect(const Results &r, const std::vector<Is> &all) {
  for (const Is &one : all) // NaN is near nothing
    EXPECT_NEAR((r.*one.value).number(), one.expected, one.tolerance) << key_of(one.value);
}

inline void expect_gaps(const Results &r, Gap gap, const std::vector<Value R::*> &values) {
  for (const auto value : values)
    EXPECT_TRUE(!(r.*value).known() && (r.*value).gap() == gap) << key_of(value);
}

} // namespace qv::tool::measure
