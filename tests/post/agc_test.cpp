// The level curve, its decisions at the knees, and the way from one gain to the next.

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

AgcPara curve(float knee_low_db, float knee_high_db, std::array<float, 3> slopes, float gain_db,
              std::array<int32_t, 3> ramps, int32_t enable = 1) {
  return {enable,    8000,      n,       0.f,      knee_low_db, knee_high_db, slopes[0],
          slopes[1], slopes[2], gain_db, ramps[0], ramps[1],    ramps[2]};
}

AgcState agc(const AgcPara &para) {
  AgcState state;
  AGC_Init(&para, &state);
  return state;
}

Samples processed(AgcState &state, Samples frame) {
  AGC_Process(frame.data(), frame.data(), &state);
  return frame;
}

TEST(Agc, levels_are_relative_to_a_full_scale_square_wave) {
  EXPECT_FLOAT_EQ(AGC_Power2Db(1.f), -90.3087f);
  EXPECT_NEAR(level_of(32767), 0, 0.0003);
  EXPECT_NEAR(level_of(3277), -20, 0.001);
}

// The output level of a steady tone is the curve of three segments, continuous at both knees: expander, compressor and
// limiter, each with the gain at the upper knee.
TEST(Agc, output_level_lies_on_the_curve) {
  const double low_knee = -50, high_knee = -20, knee_gain = 6, slopes[] = {2, 0.5, 0.25};
  AgcState state = agc(curve(-50, -20, {2, 0.5, 0.25}, 6, {0, 0, 0}, -1));
  int compared = 0;
  for (int32_t amplitude = 1; amplitude <= 32767; amplitude += amplitude / 7 + 1, ++compared) {
    const double level = 20 * std::log10(double(amplitude)) - 90.3087;
    const double at_low_knee = high_knee + knee_gain + (low_knee - high_knee) * slopes[1];
    const double expected = level > high_knee  ? high_knee + knee_gain + (level - high_knee) * slopes[2]
                            : level > low_knee ? high_knee + knee_gain + (level - high_knee) * slopes[1]
                                               : at_low_knee + (level - low_knee) * slopes[0];
    processed(state, square_wave(int16_t(amplitude)));
    EXPECT_NEAR(level + 20 * std::log10(double(state.fGainPrev)), expected, 1e-4) << amplitude;
  }
  EXPECT_GT(compared, 50);
  EXPECT_EQ(processed(state, square_wave(0)), square_wave(0));
}

// A level exactly on a knee belongs to the segment below it. Each segment takes its own time, which tells them apart.
TEST(Agc, knees_belong_to_the_segment_below) {
  const int16_t low = 300, high = 6000;
  const AgcPara para = curve(level_of(low), level_of(high), {1, 1, 1}, 20, {n, 2 * n, 3 * n});
  const std::pair<int16_t, float> shares[] = {{low - 1, 1.f},      {low, 1.f},      {low + 1, 1 / 2.f},
                                              {high - 1, 1 / 2.f}, {high, 1 / 2.f}, {high + 1, 1 / 3.f}};
  for (const auto &[amplitude, share] : shares) {
    AgcState state = agc(para);
    processed(state, square_wave(amplitude));
    EXPECT_NEAR(state.fGainPrev, 1 + 9 * share, 1e-4) << amplitude;
  }
}

// Gain moves in a straight line from sample to sample over R samples and is then held; a line that is longer than the
// frame is begun anew in each frame from where the last one ended.
TEST(Agc, gain_moves_linearly_over_the_ramp) {
  const int16_t amplitude = 1000;
  for (const int32_t ramp : {-32768, -1, 0, 1, n / 2, n - 1, n, n + 1, 2 * n, 32767}) {
    AgcState state = agc(curve(-100, 0, {1, 1, 1}, 20, {0, ramp, 0}));
    double start = 1;
    for (int frame = 0; frame < 3; ++frame) {
      const Samples in = square_wave(amplitude), out = processed(state, in);
      double gain = 10;
      for (int32_t i = 0; i < n; ++i) {
        gain = i < ramp ? start + (10 - start) * (i + 1) / ramp : 10;
        EXPECT_NEAR(out[size_t(i)], in[size_t(i)] * gain, 0.51) << "ramp " << ramp << ", sample " << i;
      }
      start = ramp >= n ? gain : 10;
      EXPECT_NEAR(state.fGainPrev, start, 1e-5) << "ramp " << ramp;
    }
  }
}

TEST(Agc, clips_at_any_gain_and_keeps_it_finite) {
  AgcState state = agc(curve(1023, -1024, {8, -8, 8}, 1023, {40, 40, 40}));
  for (const int16_t amplitude : {32767, 0, 1, 32767}) {
    const Samples out = processed(state, square_wave(amplitude));
    EXPECT_EQ(out[98], amplitude ? 32767 : 0) << amplitude;
    EXPECT_EQ(out[99], amplitude ? -32768 : 0) << amplitude;
    EXPECT_TRUE(std::isfinite(state.fGainPrev)) << amplitude;
  }
}

TEST(Agc, off_copies_and_a_separate_output_is_the_same) {
  AgcPara para = curve(-60, -20, {1, 0.5, 0.2f}, 12, {0, 90, 400}, 0);
  const Samples in = noise_samples(1, n, 20000);
  AgcState off = agc(para);
  EXPECT_EQ(processed(off, in), in);
  EXPECT_EQ(off.fGainPrev, 1.f);
  para.swAgcEnable = 1;
  AgcState in_place = agc(para), separate = agc(para);
  Samples out(n);
  AGC_Process(in.data(), out.data(), &separate);
  EXPECT_EQ(processed(in_place, in), out);
  EXPECT_NE(out, in);
}

} // namespace
