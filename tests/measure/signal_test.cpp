// Levels, activity and delay on signals whose answer is known.

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "scene/echo_path.h"
#include "scene/noise.h"
#include "signal/activity.h"
#include "signal/correlation.h"
#include "signal/resample.h"

namespace qv::tool {
namespace {

Signal tone(double seconds, double amplitude, int rate, double hz = 440) {
  Signal signal(size_t(seconds * rate));
  for (size_t i = 0; i < signal.size(); ++i)
    signal[i] = amplitude * std::sin(2 * std::numbers::pi * hz * double(i) / rate);
  return signal;
}

Signal then(Signal first, const Signal &second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// A steady tone is active all the time. One that is off for half of the time counts for the on half and 200 ms of
// hangover with the decay of the envelope: 10 log10(10 / 10.3) to 10 log10(10 / 10.6).
TEST(ActiveLevel, counts_the_active_time_only) {
  for (const int rate : {8000, 16000}) {
    const double full = 20 * std::log10(0.1 / std::sqrt(2));
    EXPECT_NEAR(*active_level_db(tone(20, 0.1, rate), rate), full, 0.05) << rate;
    const double gated = *active_level_db(then(tone(10, 0.1, rate), Signal(size_t(10 * rate))), rate);
    EXPECT_LT(gated, full - 0.1) << rate;
    EXPECT_GT(gated, full - 0.3) << rate;
    EXPECT_FALSE(active_level_db(Signal(size_t(rate)), rate)) << "silence has no level";
    EXPECT_FALSE(active_level_db(Signal(), rate));
  }
}

TEST(Activity, lasts_200_ms_beyond_the_talk) {
  const int rate = 8000;
  const Signal talk = then(then(Signal(8000), tone(1, 0.1, rate)), then(Signal(8000), tone(1, 0.1, rate)));
  const auto found = intervals(activity(talk, rate));
  ASSERT_EQ(found.size(), 2u);
  EXPECT_NEAR(found[0].begin, 1.0, 1e-9);
  EXPECT_NEAR(found[0].end, 2.2, 1e-9);
  EXPECT_NEAR(found[1].begin, 3.0, 1e-9);
  EXPECT_NEAR(found[1].end, 4.0, 1e-9);
  EXPECT_EQ(flags(found, 400), activity(talk, rate)) << "flags and intervals are inverse";
}

TEST(DelayPoints, find_lag_and_lead_between_the_samples) {
  const int rate = 8000;
  const Signal reference = scene::white_noise(size_t(rate) * 8, scene::Random(3));
  for (const double delay : {0.0, 0.1, -0.1, 0.75, 0.05 + 0.5 / 8000}) {
    scene::Response response{Signal(2 * scene::sinc_half_width + 1), scene::sinc_half_width};
    const double whole = std::floor(delay * rate), fraction = delay * rate - whole;
    for (size_t k = 0; k < response.taps.size(); ++k)
      response.taps[k] = scene::band_limited_impulse(double(k) - scene::sinc_half_width - fraction);
    const Signal delayed = scene::convolve(excerpt(reference, -std::ptrdiff_t(whole), reference.size()), response);
    const auto points = delay_points(delayed, reference, rate);
    ASSERT_EQ(points.size(), 5u) << delay;
    for (const DelayPoint &point : points)
      EXPECT_NEAR(point.delay, delay, 0.05 / rate) << point.time;
  }
}

TEST(DelayPoints, are_not_made_up) {
  const int rate = 16000;
  const Signal one = scene::white_noise(size_t(rate) * 20, scene::Random(1));
  const Signal other = scene::white_noise(size_t(rate) * 20, scene::Random(2));
  EXPECT_TRUE(delay_points(one, other, rate).empty()) << "unrelated";
  EXPECT_TRUE(delay_points(one, Signal(one.size()), rate).empty()) << "silent reference";
  EXPECT_FALSE(summarise({})) << "nothing to summarise";
}

TEST(Resample, keeps_a_tone_in_place) {
  const Signal there = resample(tone(1, 0.5, 16000), 16000, 10000), expected = tone(1, 0.5, 10000);
  ASSERT_EQ(there.size(), expected.size());
  for (size_t i = 500; i < 9500; ++i)
    ASSERT_NEAR(there[i], expected[i], 1e-4) << i;
}

} // namespace
} // namespace qv::tool
