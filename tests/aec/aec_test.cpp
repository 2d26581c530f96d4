// The echo canceller as a whole: alignment, the mute after a moved delay, and long streams.

#include <gtest/gtest.h>

#include <string>

#include "config/fields.h"
#include "qvvoice/api/process.h"
#include "qvvoice/qvvoice.h"
#include "signals.h"

namespace {

using Image = qv::config::Image;

Image image_of(Layout layout) {
  Image image{};
  image[qv::config::rate_word] = int16_t(layout.rate);
  image[qv::config::magic_word] = qv::config::magic;
  for (const qv::config::Field &field : qv::config::fields)
    for (int32_t i = 0; i < field.count(layout.rate); ++i)
      image[size_t(field.word(layout.rate, i))] =
          int16_t(std::lround(field.preset / qv::config::unit_of(field.encoding)));
  return image;
}

struct Canceller {
  Canceller(Layout l, int32_t delay, bool estimate, bool enable = true) : layout(l), services(l) {
    const Image image = image_of(l);
    VOICE_SetPara_1(image.data(), l.rate, l.n);
    AecPara para = g_stVoicePara.stAec;
    para.swAecEnable = enable;
    para.swEchoDelay = delay;
    para.stDelay.swDelayEstEnable = estimate;
    AEC_Init(&para, &st);
  }
  ~Canceller() { AEC_Destroy(&st); }
  Samples frame(const Samples &mic, const Samples &ref) {
    const Signal gain(size_t(layout.n) + 1, 1.f);
    Samples out(size_t(layout.n));
    AEC_Process(mic.data(), ref.data(), out.data(), &st, gain.data());
    return out;
  }
  Layout layout;
  Services services;
  AecState st;
};

// The reference counts up sample by sample, so its last value tells where the aligned block ended.
TEST(EchoCanceller, aligns_the_reference_within_its_history) {
  for (const Layout layout : layouts)
    for (const auto &[delay, used] : {std::pair{0, 0}, {1, 1}, {777, 777}, {4096, 4096}, {5000, 4096}, {-3, 0}}) {
      Canceller aec(layout, delay, false);
      Samples ref(size_t(layout.n));
      for (int32_t at = 0; at < 6000; at += layout.n) {
        for (int32_t i = 0; i < layout.n; ++i)
          ref[size_t(i)] = int16_t(at + i);
        aec.frame(Samples(ref.size(), 0), ref);
      }
      EXPECT_EQ(aec.st.stMdf.fMemFar, float(ref.back() - used)) << layout << ", delay " << delay;
      EXPECT_EQ(aec.st.stNlp.swDelayMute, 0);
    }
}

// In silence the tracker follows the smallest of its counts, which nothing moves: the test does.
TEST(EchoCanceller, mutes_five_frames_after_the_delay_has_moved) {
  const Layout layout = {16000, 320};
  Canceller aec(layout, 999, true);
  const Samples silent(320, 0);
  std::string mutes;
  for (int32_t frame = 0; frame < 30; ++frame) {
    const int32_t wanted = frame < 8 ? 0 : frame < 16 ? 7 : frame % 2 ? 7 : 3;
    std::fill_n(aec.st.stDelay.stBinary.aswMeanBitCnt, 32, 10240);
    aec.st.stDelay.stBinary.aswMeanBitCnt[wanted] = 0;
    aec.frame(silent, silent);
    EXPECT_EQ(aec.st.swEchoDelay, wanted * 160);
    mutes += aec.st.stNlp.swDelayMute ? 'm' : '.';
  }
  EXPECT_EQ(mutes, "mmmmm...mmmmm...mmmmmmmmmmmmmm");
}

TEST(EchoCanceller, switched_off_it_copies_and_keeps_its_history) {
  Canceller aec({8000, 128}, 0, true, false);
  const Samples mic = sampled(white_noise(128, 900.f, 1)), ref = sampled(white_noise(128, 900.f, 2));
  EXPECT_EQ(aec.frame(mic, ref), mic);
  EXPECT_TRUE(std::equal(ref.begin(), ref.end(), aec.st.psFarHist + AEC_MAX_DELAY));
  EXPECT_NE(aec.st.stDelay.stBinary.auwFarHist[0], 0u);
}

// Ten minutes (two under sanitizers, which are the point of it) of everything that a line can carry, in turns
// of 100 frames.
TEST(Endurance, the_whole_path_takes_any_stream) {
#if defined(__SANITIZE_ADDRESS__)
  constexpr double seconds = 120;
#else
  constexpr double seconds = 600;
#endif
  for (const Layout layout : layouts) {
    const Image image = image_of(layout);
    ASSERT_EQ(QV_VOICE_InitImage(image.data(), layout.rate, layout.n), 0);
    const int32_t turn = 100 * layout.n, turns = layout.samples(seconds / 4) / turn;
    const Signal talk = speech_like(turn, layout.rate, 4000.f, 1), echo = through(room(100, 0.5f, 3), talk);
    const Samples far = sampled(talk), single = sampled(echo), silent(far.size(), 0), constant(far.size(), 12000);
    const Signal near = speech_like(turn, layout.rate, 2000.f, 2), sum = echo + near;
    const Samples both = sampled(sum);
    Samples square(silent), nyquist(silent), rx(size_t(layout.n)), tx(size_t(layout.n));
    for (size_t i = 0; i < square.size(); ++i) {
      square[i] = i % 40 < 20 ? 32767 : -32768;
      nyquist[i] = i % 2 ? 32767 : -32768;
    }
    const std::pair<const Samples *, const Samples *> lines[] = {
        {&far, &single},    {&far, &both},     {&silent, &both},  {&silent, &silent},
        {&square, &square}, {&far, &constant}, {&nyquist, &both}, {&far, &square}};
    int32_t quiet = 0;
    for (int32_t t = 0; t < turns; ++t)
      for (int32_t at = 0; at < turn; at += layout.n) {
        const auto &[rx_in, mic] = lines[t % std::size(lines)];
        ASSERT_EQ(VOICE_Process(rx_in->data() + at, rx.data(), mic->data() + at, tx.data(), uint32_t(layout.n)), 0);
        quiet += tx == Samples(tx.size(), 0);
      }
    EXPECT_GT(turns, 8);
    EXPECT_LT(quiet, turns * 50) << layout << "the stream has broken";
    AecState &st = g_stVoiceProcess.stAec;
    EXPECT_TRUE(all_finite({{st.stMdf.pfWBg, 4 * size_t(layout.n)},
                            {st.stNlp.pfSynthPrev, 2 * size_t(layout.n)},
                            {st.stNlp.pfErrPsd, size_t(layout.n) + 1},
                            {st.stDtd.afResTimeSm, 32}}));
    EXPECT_EQ(QV_VOICE_Destory(), 0);
  }
}

} // namespace
