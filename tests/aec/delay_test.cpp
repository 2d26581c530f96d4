// The delay estimator's steps: one word per block, the running means, the two rules that accept a candidate.

#include <bit>
#include <complex>
#include <cstring>
#include <numbers>

#include "signals.h"

namespace {

using namespace qv::test;

constexpr int32_t q9(double count) { return int32_t(count * 512); }

struct Tracker {
  Tracker(int32_t candidates, int32_t lookahead) { AEC_DelayBinaryInit(candidates, lookahead, &st); }
  ~Tracker() { AEC_DelayBinaryDestroy(&st); }
  AecDelayBinaryState st;
};

// Candidates 3 and 5 are the best, the others the worst; the reference is empty, so the means rest.
TEST(DelayTracker, accepts_below_its_threshold_or_below_the_last_accepted_count) {
  struct Case {
    const char *what;
    int32_t best, worst, threshold, last, delay, threshold_after, last_after;
  };
  const int32_t start = q9(32);
  for (const Case &c : {Case{"a deep valley", q9(16), q9(24), start, start, 3, q9(18), q9(16)},
                        Case{"a deeper one: the threshold's floor", q9(10), q9(24), start, start, 3, q9(17), q9(10)},
                        Case{"just not deep", q9(18), q9(23.5), start, start, 3, start, q9(18)},
                        Case{"just deep", q9(18), q9(23.5) + 1, start, start, 3, q9(20), q9(18)},
                        Case{"the threshold never rises", q9(18), q9(30), q9(19), start, 3, q9(19), q9(18)},
                        Case{"neither rule", q9(20), q9(25), q9(20), q9(20) - 1, 7, q9(20), q9(20)},
                        Case{"the first alone", q9(20) - 1, q9(25), q9(20), q9(15), 3, q9(20), q9(15) + 1},
                        Case{"the second alone", q9(25), q9(30), q9(20), q9(25), 3, q9(20), q9(25)},
                        Case{"all bits differ everywhere", start, start, start, start, 0, start, start}}) {
    Tracker t(8, 0);
    std::fill_n(t.st.aswMeanBitCnt, 8, c.worst);
    t.st.aswMeanBitCnt[3] = t.st.aswMeanBitCnt[5] = c.best;
    t.st.swMinProb = c.threshold;
    t.st.swLastDelayProb = c.last;
    t.st.swLastDelay = 7;
    EXPECT_EQ(AEC_BinarySpectrumProcess(&t.st, 0, ~0u), c.delay) << c.what;
    EXPECT_EQ(t.st.swMinProb, c.threshold_after) << c.what;
    EXPECT_EQ(t.st.swLastDelayProb, c.last_after) << c.what;
  }
}

// From 20.0 towards 0 or 32, by a share of 2^-13 for poor reference words to 2^-7 for full ones, cut towards zero.
TEST(DelayTracker, means_follow_faster_for_richer_words) {
  for (const auto &[far, near, moved] : {std::tuple{0u, ~0u, 0},
                                         {0x1u, 0x1u, -1},
                                         {0x1fu, ~0x1fu, 0},
                                         {0x3fu, ~0x3fu, 1},
                                         {0x7ffu, ~0x7ffu, 3},
                                         {0xffffu, 0xffff0000u, 6},
                                         {0xffffu, 0xffffu, -10},
                                         {~0u, ~0u, -80},
                                         {~0u, 0u, 48}}) {
    Tracker t(2, 0);
    AEC_BinarySpectrumProcess(&t.st, far, near);
    EXPECT_EQ(t.st.aswMeanBitCnt[0] - q9(20), moved) << std::popcount(far) << " bits";
    EXPECT_EQ(t.st.aswMeanBitCnt[1], q9(20)) << "no reference yet";
  }
}

// The microphone's word waits for the lookahead: an echo one block late is three blocks late for two of lookahead.
TEST(DelayTracker, lookahead_adds_to_the_delay) {
  Tracker t(4, 2);
  std::mt19937 random(1);
  uint32_t before = 0;
  int32_t delay = -1;
  for (int32_t block = 0; block < 500; ++block) {
    const auto word = uint32_t(random());
    delay = AEC_BinarySpectrumProcess(&t.st, word, std::exchange(before, word));
  }
  EXPECT_EQ(delay, 3);
}

/// The word of a signal, by the definition: bins 12 to 43 of the Hann-windowed last two blocks, a bit where the power
/// is above an average over 64 blocks that starts at half the first power.
struct SlowWord {
  std::vector<double> time, threshold = std::vector<double>(32);
  bool seeded = false;
  uint32_t word = 0, unsure = 0; ///< bits; those within rounding of their threshold

  void next(std::span<const int16_t> block) {
    const size_t length = 2 * block.size();
    time.resize(length);
    std::copy(time.begin() + ptrdiff_t(block.size()), time.end(), time.begin());
    std::copy(block.begin(), block.end(), time.begin() + ptrdiff_t(block.size()));
    word = unsure = 0;
    bool heard = false;
    for (size_t b = 0; b < 32; ++b) {
      std::complex<double> sum;
      for (size_t i = 0; i < length; ++i)
        sum += time[i] * std::pow(std::sin(std::numbers::pi * double(i) / double(length)), 2) *
               std::polar(1.0, -2 * std::numbers::pi * double((b + 12) * i % length) / double(length));
      const double power = std::norm(sum) / double(length * length);
      heard |= power > 0;
      if (!seeded)
        threshold[b] = power / 2;
      threshold[b] += (power - threshold[b]) / 64;
      word |= uint32_t(power > threshold[b]) << b;
      unsure |= uint32_t(std::fabs(power - threshold[b]) <= 1e-4 * threshold[b]) << b;
    }
    seeded |= heard;
  }
};

TEST(DelayTracker, words_are_those_of_the_definition) {
  for (const Layout &layout : all_layouts) {
    start(layout);
    const auto block = size_t(layout.frame_len) / 2;
    const AecDelayPara para = {1, int32_t(block), 32, 1};
    AecDelayState st;
    std::memset(&st, 0x5a, sizeof st); // as found
    AEC_DelayInit(&para, &st);
    SlowWord slow_far, slow_near;
    Samples far(3 * block, 0), near = noise_samples(5, 30 * block, 900);
    const Samples talk = noise_samples(4, 27 * block, 9000);
    far.insert(far.end(), talk.begin(), talk.end()); // starts in silence
    for (size_t at = 0; at < far.size(); at += block) {
      slow_far.next(std::span(far).subspan(at, block));
      slow_near.next(std::span(near).subspan(at, block));
      AEC_DelayProcessSub(&near[at], &far[at], int32_t(block), &st);
      EXPECT_EQ((st.stBinary.auwFarHist[0] ^ slow_far.word) & ~slow_far.unsure, 0u) << layout << ", sample " << at;
      EXPECT_EQ((st.stBinary.auwNearHist[0] ^ slow_near.word) & ~slow_near.unsure, 0u) << layout << ", sample " << at;
      EXPECT_LT(std::popcount(slow_near.unsure), 4);
      EXPECT_TRUE(at < 4 * block || std::popcount(slow_far.unsure) < 4);
    }
    AEC_DelayDestroy(&st);
  }
}

} // namespace
