// The delay estimator: exact on pure delays, and its fixed-point tracker at its edges.

#include <gtest/gtest.h>

#include "signals.h"

namespace {

struct Tracker : AecDelayBinaryState {
  Tracker() { AEC_DelayBinaryInit(32, 0, this); }
  ~Tracker() { AEC_DelayBinaryDestroy(this); }
};

TEST(Delay, finds_every_pure_delay_exactly) {
  for (const Layout layout : layouts) {
    const Services services(layout);
    const int32_t block = layout.n / 2;
    const AecDelayPara para = {1, block, 32, 0};
    for (const bool speech : {false, true}) {
      const int32_t length = layout.samples(4);
      const Samples ref =
          sampled(speech ? speech_like(length, layout.rate, 2000.f, 1) : white_noise(length, 2000.f, 2));
      for (int32_t k = 0; k < 32; ++k) {
        Samples mic(ref.size(), 0);
        for (size_t i = size_t(k * block); i < mic.size(); ++i)
          mic[i] = int16_t(ref[i - size_t(k * block)] / 3);
        AecDelayState st;
        AEC_DelayInit(&para, &st);
        int32_t delay = -1;
        for (size_t at = 0; at < ref.size(); at += size_t(layout.n))
          delay = AEC_DelayProcess(mic.data() + at, ref.data() + at, layout.n, &st);
        EXPECT_EQ(delay, k * block) << layout << (speech ? " speech" : " noise");
        AEC_DelayDestroy(&st);
      }
    }
  }
}

TEST(Delay, the_smaller_of_two_equal_delays_wins) {
  Tracker st;
  st.aswMeanBitCnt[9] = st.aswMeanBitCnt[5] = 1000; // empty reference words leave them there
  EXPECT_EQ(AEC_BinarySpectrumProcess(&st, 0, 0xffff), 5);
  EXPECT_EQ(st.aswMeanBitCnt[5], 1000);
  EXPECT_EQ(st.swLastDelayProb, 1000);
  std::fill_n(st.aswMeanBitCnt, 32, 16384); // nothing is convincing
  EXPECT_EQ(AEC_BinarySpectrumProcess(&st, 0, 0), 5) << "the last one holds";
  EXPECT_EQ(st.swLastDelayProb, 1001) << "and what would replace it becomes easier";
}

// The first block with any power is above half of itself in every bin.
TEST(Delay, thresholds_start_from_the_first_signal) {
  const Services services({8000, 128});
  const AecDelayPara para = {1, 64, 32, 0};
  AecDelayState st;
  AEC_DelayInit(&para, &st);
  const Samples noise = sampled(white_noise(128, 1000.f, 1)), silent(128, 0);
  AEC_DelayProcess(silent.data(), silent.data(), 128, &st);
  EXPECT_EQ(st.swFarThrInit, 0);
  AEC_DelayProcessSub(silent.data(), noise.data(), 64, &st);
  EXPECT_EQ(st.stBinary.auwFarHist[0], 0xffffffffu);
  EXPECT_EQ(st.swNearThrInit, 0);
  AEC_DelayDestroy(&st);
}

// A mean moves towards 512 times the block's count by a fraction 2^-shifts, shifts = 13 - (3 bits >> 4),
// rounded towards zero on both sides.
TEST(Delay, means_move_by_steps_rounded_towards_zero) {
  struct Case {
    uint32_t far, near;
    int32_t mean, moved;
  };
  // By 7 shifts down and up, by 13, by 10, and not at all for an empty word.
  constexpr uint32_t all = 0xffffffff;
  const Case cases[] = {{all, all, 10240, 10160}, {all, all, 127, 127},           {all, all, 128, 127},
                        {all, 0, 16257, 16257},   {all, 0, 16128, 16130},         {1, 1, 16384, 16382},
                        {1, 1, 8191, 8191},       {0xffff, 0xffff, 10240, 10230}, {0, all, 10240, 10240}};
  for (const auto &[far, near, mean, moved] : cases) {
    Tracker st;
    st.aswMeanBitCnt[0] = mean;
    AEC_BinarySpectrumProcess(&st, far, near);
    EXPECT_EQ(st.aswMeanBitCnt[0], moved) << std::hex << far << " against " << near;
  }
}

TEST(Delay, the_acceptance_threshold_only_falls_to_its_floor) {
  struct Case {
    int32_t best, worst, before, after;
  };
  // A deep valley, one not deep enough, the floor twice, and never up.
  const Case cases[] = {{9000, 11817, 16384, 10024},
                        {9000, 11816, 16384, 16384},
                        {2000, 16000, 16384, 8704},
                        {2000, 16000, 8704, 8704},
                        {9000, 16000, 9500, 9500}};
  for (const auto &[best, worst, before, after] : cases) {
    Tracker st;
    std::fill_n(st.aswMeanBitCnt, 32, worst);
    st.aswMeanBitCnt[3] = best;
    st.swMinProb = before;
    AEC_BinarySpectrumProcess(&st, 0, 0);
    EXPECT_EQ(st.swMinProb, after) << best << " to " << worst;
  }
}

} // namespace
