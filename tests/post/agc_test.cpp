// The level curve and its decisions at the knees.

#include "qvvoice/post/agc.h"

#include <array>

#include "support.h"

namespace {

using namespace qv::test;

constexpr int32_t n = 160;

/// A square wave: its mean square is exactly amplitude^2.
Samples square_wave(int16_t amplitude) {
  Samples frame(n, amplitude);
  for (size_t i = 1; i < frame.size(); i += 2)
    frame[i] = int16_t(-amplitude);
  return frame;
}

float level_of(int16_t amplitude) { return AGC_Power2Db(float(amplitude) * float(amplitude)); }

AgcState agc(std::array<float, 2> knees_db, std::array<float, 3> slopes, float gain_db, std::array<int32_t, 3> ramps) {
  const AgcPara para{1,         8000,      n,       0.f,      knees_db[0], knees_db[1], slopes[0],
                     slopes[1], slopes[2], gain_db, ramps[0], ramps[1],    ramps[2]};
  AgcState state;
  AGC_Init(&para, &state);
  return state;
}

Samples processed(AgcState &state, Samples frame) {
  AGC_Process(frame.data(), frame.data(), &state);
  return frame;
}

// The output level of a steady tone is the curve of three segments, continuous at both knees: expander, compressor and
// limiter, each with the gain at the upper knee.
TEST(GainControl, output_level_lies_on_the_curve) {
  const double low_knee = -50, high_knee = -20, at_high_knee = -14, at_low_knee = -29;
  AgcState state = agc({-50, -20}, {2, 0.5, 0.25}, 6, {0, 0, 0});
  for (int32_t amplitude = 1; amplitude <= 32767; amplitude += amplitude / 7 + 1) {
    const double level = 20 * std::log10(double(amplitude)) - 90.3087; // of a full-scale square wave
    const double expected = level > high_knee  ? at_high_knee + (level - high_knee) * 0.25
                            : level > low_knee ? at_high_knee + (level - high_knee) * 0.5
                                               : at_low_knee + (level - low_knee) * 2;
    processed(state, square_wave(int16_t(amplitude)));
    EXPECT_NEAR(level + 20 * std::log10(double(state.fGainPrev)), expected, 1e-4) << amplitude;
  }
}

// A level exactly on a knee belongs to the segment below it. Each segment takes its own time, which tells them apart.
TEST(GainControl, knees_belong_to_the_segment_below) {
  const int16_t low = 300, high = 6000;
  for (const auto &[amplitude, share] : std::initializer_list<std::pair<int16_t, float>>{
           {low - 1, 1.f}, {low, 1.f}, {low + 1, 1 / 2.f}, {high - 1, 1 / 2.f}, {high, 1 / 2.f}, {high + 1, 1 / 3.f}}) {
    AgcState state = agc({level_of(low), level_of(high)}, {1, 1, 1}, 20, {n, 2 * n, 3 * n});
    processed(state, square_wave(amplitude));
    EXPECT_NEAR(state.fGainPrev, 1 + 9 * share, 1e-4) << amplitude;
  }
}

TEST(GainControl, clips_at_any_gain_and_keeps_it_finite) {
  AgcState state = agc({1023, -1024}, {8, -8, 8}, 1023, {40, 40, 40});
  for (const int16_t amplitude : {32767, 0, 1, 32767}) {
    const Samples out = processed(state, square_wave(amplitude));
    EXPECT_EQ(out[98], amplitude ? 32767 : 0) << amplitude;
    EXPECT_EQ(out[99], amplitude ? -32768 : 0) << amplitude;
    EXPECT_TRUE(std::isfinite(state.fGainPrev)) << amplitude;
  }
}

} // namespace
