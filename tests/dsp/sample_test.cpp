#include "dsp/sample.h"

#include "support.h"

namespace {

/// The rule as it is written down: the ends of the range, else floor(x + 0.5) in double precision.
int expected_sample(float x) {
  return x < -32767.5f ? -32768 : x > 32766.5f ? 32767 : int(std::floor(double(x) + 0.5));
}

TEST(ToSample, rounds_half_up_at_every_boundary_between_samples) {
  for (int k = -65540; k <= 65540; ++k)
    for (const float x : {float(k) / 2, std::nextafter(float(k) / 2, -1e9f), std::nextafter(float(k) / 2, 1e9f)})
      ASSERT_EQ(qv::to_sample(x), expected_sample(x)) << x;
}

TEST(ToSample, clips_and_takes_undefined_as_silence) {
  for (const auto &[x, expected] : std::initializer_list<std::pair<float, int>>{{8388607.5f, 32767},
                                                                                {1e30f, 32767},
                                                                                {-1e30f, -32768},
                                                                                {INFINITY, 32767},
                                                                                {-INFINITY, -32768},
                                                                                {NAN, 0},
                                                                                {-NAN, 0}})
    EXPECT_EQ(qv::to_sample(x), expected) << x;
}

} // namespace
