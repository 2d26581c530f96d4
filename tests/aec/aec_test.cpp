// The echo canceller around its stages: the delay is found and made good, and any stream is taken.

#include "signals.h"

namespace {

using namespace qv::test;

AecState &aec = g_stVoiceProcess.stAec;

TEST(Delay, finds_every_pure_delay_exactly) {
  for (const Layout &layout : all_layouts)
    for (const bool speech : {false, true}) {
      start(layout);
      const int32_t n = layout.frame_len, block = n / 2;
      const AecDelayPara para = {1, block, 32, 0};
      const Samples ref = sampled(reference(speech, 4, layout));
      for (int32_t k = 0; k < 32; ++k) {
        Samples mic(size_t(k * block), 0);
        for (const int16_t x : ref)
          mic.push_back(int16_t(x / 3));
        AecDelayState st;
        AEC_DelayInit(&para, &st);
        int32_t delay = -1;
        for (size_t at = 0; at < ref.size(); at += size_t(n))
          delay = AEC_DelayProcess(&mic[at], &ref[at], n, &st);
        EXPECT_EQ(delay, k * block) << layout << (speech ? " speech" : " noise");
        AEC_DelayDestroy(&st);
      }
    }
}

// The reference counts up sample by sample, so its last value tells where the aligned block ended.
TEST(EchoCanceller, aligns_the_reference_within_its_history) {
  for (const Layout &layout : all_layouts)
    for (const auto &[delay, used] : {std::pair{0, 0}, {1, 1}, {777, 777}, {4096, 4096}, {5000, 4096}, {-3, 0}}) {
      start(layout);
      aec.stDelay.swDelayEstEnable = 0;
      aec.swEchoDelay = delay;
      Samples ref(size_t(layout.frame_len), -1), out(ref);
      const Samples silent(ref.size(), 0);
      while (ref.back() < 6000) {
        std::iota(ref.begin(), ref.end(), int16_t(ref.back() + 1));
        QV_VOICE_ProcessTx(silent.data(), ref.data(), out.data(), 0);
      }
      EXPECT_EQ(aec.stMdf.fMemFar, float(ref.back() - used)) << layout << ", delay " << delay;
    }
}

// Ten minutes (two under sanitizers) of everything that a line can carry, in turns of 100 frames.
TEST(Endurance, the_whole_path_takes_any_stream) {
#if defined(__SANITIZE_ADDRESS__)
  constexpr double seconds = 120;
#else
  constexpr double seconds = 600;
#endif
  for (const Layout &layout : all_layouts) {
    start(layout);
    const auto n = size_t(layout.frame_len);
    const size_t turn = 100 * n, turns = samples(layout, seconds / 4) / turn;
    const Signal voice = talk(turn, layout.rate, 4000, 1), echo = echo_of(voice, layout);
    const Samples far = sampled(voice), both = sampled(talk(turn, layout.rate, 2000, 2) + echo);
    const Samples silent(far.size(), 0), constant(far.size(), 12000);
    Samples square(silent), nyquist(silent), rx(n), tx(n);
    for (size_t i = 0; i < square.size(); ++i) {
      square[i] = i % 40 < 20 ? 32767 : -32768;
      nyquist[i] = i % 2 ? 32767 : -32768;
    }
    const std::pair<Samples, Samples> lines[] = {{far, sampled(echo)}, {far, both},      {silent, both},
                                                 {silent, silent},     {square, square}, {far, constant},
                                                 {nyquist, both},      {far, square}};
    size_t quiet = 0;
    for (size_t t = 0; t < turns; ++t)
      for (size_t at = 0; at < turn; at += n) {
        const auto &[rx_in, mic] = lines[t % std::size(lines)];
        ASSERT_EQ(VOICE_Process(&rx_in[at], rx.data(), &mic[at], tx.data(), 0), QV_VOICE_OK);
        quiet += tx == Samples(n, 0);
      }
    EXPECT_LT(quiet, turns * 50) << layout << "the stream has broken";
    EXPECT_TRUE(all_finite({{aec.stMdf.pfWBg, 4 * n}, {aec.stNlp.pfSynthPrev, 2 * n}, {aec.stDtd.afResTimeSm, 32}}));
    EXPECT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
  }
}

} // namespace
