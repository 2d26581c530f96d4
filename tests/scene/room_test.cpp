// Impulse responses against geometry, and noise against its definition.

#include <gtest/gtest.h>

#include <cmath>

#include "scene/echo_path.h"
#include "scene/noise.h"
#include "signal/spectrum.h"

namespace qv::tool::scene {
namespace {

/// Tap at a delay of so many samples.
double tap(const Response &response, double samples) {
  return response.taps.at(response.lead + size_t(std::lround(samples)));
}

// A source 3.43 m away on a whole sample is heard 10 ms later, 1/3.43 high; the high-pass keeps that first tap.
TEST(Room, without_reflections_the_direct_path_alone_arrives) {
  for (const int rate : {8000, 16000}) {
    const Response response = impulse_response({{10, 10, 10}, 0}, {2, 5, 5}, {5.43, 5, 5}, rate);
    EXPECT_NEAR(tap(response, 0.010 * rate), 1 / 3.43, 1e-6) << rate;
    EXPECT_NEAR(tap(response, 0.010 * rate - 20), 0, 1e-6) << "nothing before it";
    EXPECT_LT(std::abs(tap(response, 0.010 * rate + 20)), 0.05) << "the high-pass alone afterwards";
  }
}

// The floor 1.28625 m below both gives an image: path sqrt(3.43^2 + 2.5725^2) = 4.2875 m, 12.5 ms, once reflected.
TEST(Room, a_reflection_comes_from_the_mirror_image) {
  const Point source = {20, 20, 1.28625}, receiver = {23.43, 20, 1.28625};
  const Response hall = impulse_response({{60, 60, 60}, 1.0}, source, receiver, 16000);
  const Response open = impulse_response({{60, 60, 60}, 0.01}, source, receiver, 16000); // absorbs all
  const double beta = std::exp(-12 * std::log(10.0) * 216000 / (343 * 21600.0)); // by hand from Eyring's formula
  EXPECT_NEAR(tap(hall, 200) - tap(open, 200), beta / 4.2875, 1e-6);
  EXPECT_NEAR(tap(hall, 180) - tap(open, 180), 0, 1e-6) << "nothing between the two";
}

// Schroeder's backward integration, slope between -5 and -25 dB. Image sources in a box with equal walls decay a
// little slower than Eyring's diffuse field.
TEST(Room, decays_in_the_reverberation_time) {
  for (const double seconds : {0.2, 0.4}) {
    const Response response = impulse_response({{5, 4, 3}, seconds}, {1.1, 1.3, 1.2}, {3.7, 2.9, 1.7}, 16000);
    Signal rest(response.taps.size() + 1);
    for (size_t i = response.taps.size(); i-- > 0;)
      rest[i] = rest[i + 1] + response.taps[i] * response.taps[i];
    const auto falls_to = [&](double db) {
      size_t i = 0;
      while (rest[i] > rest[0] * from_db(db))
        ++i;
      return double(i) / 16000;
    };
    EXPECT_NEAR(3 * (falls_to(-25) - falls_to(-5)) / seconds, 1.1, 0.2) << seconds;
  }
}

TEST(EchoPath, convolution_is_the_sum_over_taps_in_place) {
  Signal x(1500);
  Random random(1);
  for (double &value : x)
    value = random.normal();
  const Response response = {{0.5, -1, 0.25, 2, 0.125}, 2};
  const Signal y = convolve(x, response);
  ASSERT_EQ(y.size(), x.size());
  for (size_t n = 0; n < x.size(); ++n) {
    double sum = 0;
    for (size_t k = 0; k < 5; ++k)
      if (n + 2 >= k && n + 2 - k < x.size())
        sum += response.taps[k] * x[n + 2 - k];
    ASSERT_NEAR(y[n], sum, 1e-12) << n;
  }
}

TEST(Noise, has_unit_variance_and_its_spectrum) {
  const size_t count = 1 << 17;
  const Transform transform(count);
  const auto octave_power = [&](const Signal &noise, int octave) {
    const Spectrum spectrum = transform.forward(noise);
    const size_t begin = (count / 2) >> (octave + 1);
    double sum = 0;
    for (size_t k = begin; k < 2 * begin; ++k)
      sum += std::norm(spectrum[k]);
    return 10 * std::log10(sum);
  };
  const Signal white = white_noise(count, Random(7)), pink = pink_noise(count, Random(7));
  EXPECT_NEAR(power(white), 1, 0.02);
  for (int octave = 0; octave < 6; ++octave) {
    EXPECT_NEAR(octave_power(white, octave) - octave_power(white, octave + 1), 3.01, 0.5) << octave;
    EXPECT_NEAR(octave_power(pink, octave) - octave_power(pink, octave + 1), 0, 0.5) << octave;
  }
}

TEST(Random, streams_of_a_seed_differ_and_repeat) {
  Random one(5, 1), again(5, 1), two(5, 2);
  const uint64_t first = one.next();
  EXPECT_EQ(first, again.next());
  EXPECT_NE(first, two.next());
  double sum = 0;
  for (int i = 0; i < 10000; ++i)
    sum += one.uniform();
  EXPECT_NEAR(sum / 10000, 0.5, 0.01);
}

} // namespace
} // namespace qv::tool::scene
