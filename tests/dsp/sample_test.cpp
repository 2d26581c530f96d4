#include "dsp/sample.h"

#include "support.h"

namespace {

/// The rule as it is written down: the ends of the range, else floor(x + 0.5) in double precision.
int expected_sample(float x) {
  return x < -32767.5f ? -32768 : x > 32766.5f ? 32767 : int(std::floor(double(x) + 0.5));
}

TEST(ToSample, rounds_half_up_at_every_boundary_between_samples) {
  int64_t different = 0, compared = 0;
  for (int k = -32770; k <= 32770; ++k)
    for (const float x : {float(k), float(k) + 0.5f})
      for (const float near : {x, std::nextafter(x, -1e9f), std::nextafter(x, 1e9f)}) {
        different += qv::to_sample(near) != expected_sample(near);
        ++compared;
      }
  EXPECT_EQ(different, 0);
  EXPECT_EQ(compared, 65541 * 6);
}

TEST(ToSample, clips_and_takes_undefined_as_silence) {
  const std::pair<float, int> cases[] = {
      {32766.6f, 32767},  {32766.5f, 32767},   {32766.4f, 32766}, {-32767.5f, -32767}, {-32767.6f, -32768},
      {1e30f, 32767},     {-1e30f, -32768},    {INFINITY, 32767}, {-INFINITY, -32768}, {NAN, 0},
      {-NAN, 0},          {-0.5f, 0},          {0.5f, 1},         {-0.0f, 0},          {0.49999997f, 0},
      {-0.50000006f, -1}, {8388607.5f, 32767},
  };
  for (const auto &[x, expected] : cases)
    EXPECT_EQ(qv::to_sample(x), expected) << x;
}

} // namespace
