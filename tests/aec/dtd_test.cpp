// The double-talk detector: hangs, thresholds and presences at their boundaries.

#include <gtest/gtest.h>

#include "signals.h"

namespace {

constexpr int32_t bands = 24;

// clang-format off
constexpr AecDtdPara para = {
    160, bands, 100.f, 5,           // far end: peak 100, hang 5
    {10, 10, 10, 10, 10, 10},       // a band is excited
    {1, 1, 1, 1, 1, 1},             // and judged
    {20, 20, 20, 20, 20, 20},       // above this far-end power
    {100, 100, 100, 100, 100, 100}, // by its residual
    {300, 300, 300, 300, 300, 300},
    {0.1f, 0.1f, 0.1f, 0.1f, 0.1f, 0.1f}, // and its ratio
    {0.5f, 0.5f, 0.5f, 0.5f, 0.5f, 0.5f},
    {},
    4, 12, 3, 2,                    // 3 of the bands 4 to 11, hang 2
    0.3f, 0.125f, 0.5f, 0.0625f};   // threshold: start, step, bounds
// clang-format on

// A detector whose bands all hold the same powers; the residual has had its value for long.
struct Scene {
  AecDtdState st;
  float near[bands], far[bands], err[bands], gain[bands], presence[bands];

  Scene() { AEC_DtdInit(&para, &st); }
  int32_t judge(float near_power, float far_power, float residual) {
    for (int32_t b = 0; b < bands; ++b) {
      near[b] = near_power;
      far[b] = far_power;
      err[b] = st.afResTimeSm[b] = residual;
      gain[b] = 1.f;
    }
    return judge();
  }
  int32_t judge() { return AEC_DtdProcessStDtJudge(near, far, err, gain, presence, bands, &st); }
};

TEST(DoubleTalk, the_far_end_is_silent_after_more_than_five_quiet_frames_or_in_a_weak_band) {
  Scene scene;
  const Samples quiet(160, 99), loud(160, -100);
  const auto state_after = [&](const Samples &far, int32_t frames) {
    for (int32_t i = 0; i < frames; ++i)
      AEC_DtdProcessPassJudge(far.data(), &scene.st);
    return scene.st.swTalkState;
  };
  EXPECT_EQ(state_after(quiet, 5), 2);
  EXPECT_EQ(state_after(quiet, 1), 0);
  EXPECT_EQ(state_after(loud, 1), 2) << "a peak at the threshold is loud";
  EXPECT_EQ(state_after(quiet, 5), 2) << "the count starts again";
  EXPECT_EQ(state_after(quiet, 1), 0);
  EXPECT_EQ(state_after(Samples(160, -32768), 1), 2);

  const float far[bands] = {9.99f, 10.f};
  AEC_DtdProcessBandPassJudge(far, bands, &scene.st);
  for (int32_t b = 0; b < bands; ++b)
    EXPECT_EQ(scene.st.aswBandFarActive[b], b == 1 ? 2 : 0) << "band " << b;
}

TEST(DoubleTalk, presence_of_one_band) {
  struct Case {
    const char *what;
    float near, far, residual, expected;
    int32_t enabled = 1;
    float drop_factor = 0;
  };
  const Case cases[] = {{"not judged", 1000, 50, 0, 1, 0},          {"not judged, dropped", 1000, 50, 200, 1, 0, 2},
                        {"far end too weak", 1000, 20, 0, 1},       {"residual below its knee", 150, 50, 99, 0},
                        {"ratio below its knee", 2100, 50, 200, 0}, {"all above", 600, 50, 301, 1},
                        {"residual half way", 220, 50, 200, 0.5f},  {"ratio half way", 1000, 50, 301, 0.5025f},
                        {"dropped", 600, 50, 301, 0, 1, 2}};
  for (const Case &c : cases) {
    Scene scene;
    std::ranges::fill(scene.st.aswBandJudgeEnable, c.enabled);
    std::ranges::fill(scene.st.afResDropFactor, c.drop_factor);
    scene.judge(c.near, c.far, c.residual);
    for (const int32_t b : {0, 1, 5, bands - 1})
      EXPECT_NEAR(scene.presence[b], c.expected, 2e-3f) << c.what << ", band " << b;
  }
}

TEST(DoubleTalk, the_residual_is_smoothed_across_bands_and_over_time) {
  Scene scene;
  scene.judge(1000, 50, 0);
  std::fill_n(scene.err, bands, 0.f);
  scene.err[1] = scene.err[10] = 1000.f;
  scene.gain[10] = 0.5f;
  scene.judge();
  EXPECT_EQ(scene.err[10], 500.f) << "multiplied in place";
  EXPECT_FLOAT_EQ(scene.st.afRatio[10], 0.5f);
  for (const auto &[b, share] : {std::pair{8, 0.1f}, {9, 0.2f}, {10, 0.4f}, {11, 0.2f}, {12, 0.1f}, {13, 0.f}}) {
    EXPECT_FLOAT_EQ(scene.st.afResFreqSm[b], share * 500.f) << b;
    EXPECT_NEAR(scene.st.afResTimeSm[b], 0.08f * share * 500.f, 1e-4f) << b;
  }
  EXPECT_FLOAT_EQ(scene.st.afResFreqSm[1], 1000.f) << "edges are copied";
  EXPECT_FLOAT_EQ(scene.st.afResFreqSm[2], 200.f);
}

TEST(DoubleTalk, counts_convincing_bands_with_a_moving_threshold) {
  Scene scene;
  const auto convince = [&](int32_t first, int32_t count, float near_power = 600) {
    scene.judge(near_power, 50, 0);
    for (int32_t b = first; b < first + count; ++b)
      scene.err[b] = scene.st.afResTimeSm[b] = 500.f;
    scene.st.swTalkState = 2;
    return scene.judge();
  };
  EXPECT_EQ(convince(4, 3), 2);
  EXPECT_FLOAT_EQ(scene.st.fPresenceThr, 0.175f);
  EXPECT_EQ(convince(9, 3), 2);
  EXPECT_FLOAT_EQ(scene.st.fPresenceThr, 0.0625f) << "at its lower bound";
  // Too few, out of the counted range, or a silent microphone: the hang first, then single talk. The calls
  // that set the scene count as well, so the hang is over after the first of these.
  EXPECT_EQ(convince(4, 2), 2) << "the count of frames, still within the hang";
  EXPECT_EQ(scene.st.swTalkState, 2);
  EXPECT_EQ(convince(10, 6), 1);
  EXPECT_EQ(scene.st.swTalkState, 1);
  EXPECT_FLOAT_EQ(scene.st.fPresenceThr, 0.0625f + 2 * 0.125f);
  EXPECT_EQ(convince(4, 3, 100.f), 1) << "microphone power of 100 does not count";
  EXPECT_EQ(scene.st.fPresenceThr, 0.5f) << "at its upper bound";
  EXPECT_EQ(convince(4, 3), 2) << "one convincing frame ends it";
  EXPECT_EQ(scene.st.swBelowCnt, 0);
}

TEST(DoubleTalk, an_empty_or_wild_count_range_is_harmless) {
  struct Case {
    int32_t start, end, minimum, state;
  };
  for (const auto &[start, end, minimum, state] :
       {Case{8, 8, 1, 1}, {8, 8, 0, 2}, {-5, 1000, 24, 2}, {-5, 1000, 25, 1}, {30, -1, 1, 1}}) {
    Scene scene;
    scene.st.swCountBandStart = start;
    scene.st.swCountBandEnd = end;
    scene.st.swCountMin = minimum;
    scene.st.swSingleTalkHang = 0;
    EXPECT_EQ(scene.judge(600, 50, 500), state) << start << " to " << end << ", " << minimum;
  }
}

TEST(DoubleTalk, gain_smoothing_keeps_the_edges_and_negative_gains) {
  const float in[7] = {1, 2, 1, 1, -0.2f, 3, 4};
  float out[7] = {9, 9, 1, 0, 1, 9, 9};
  AEC_DtdGainSmooth(in, out, 7);
  const float expected[7] = {
      1, 2, 0.6f + 0.4f * (0.1f + 0.4f + 0.4f + 0.2f - 0.02f), 0.4f * (0.2f + 0.2f + 0.4f - 0.04f + 0.3f), -0.2f, 3, 4};
  for (int32_t b = 0; b < 7; ++b)
    EXPECT_NEAR(out[b], expected[b], 1e-6f) << b;
}

} // namespace
