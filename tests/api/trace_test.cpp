// What the trace says, held against the frames that went in and came out and against the states it speaks of.

#include <array>

#include "images.h"
#include "qvvoice/api/process.h"

namespace {

using namespace qv::test;

VoiceProcess &process = g_stVoiceProcess;

/// The echo canceller alone, with the given suppressor switched on by its word (0: neither).
void start(const Layout &layout, size_t suppressor) {
  qv::config::Image image = qv::config::default_image(layout.rate);
  for (const size_t stage : {13, 14, 100, 110, 120, 140, 440})
    image[stage] = 0;
  if (suppressor)
    image[suppressor] = 1;
  ASSERT_EQ(QV_VOICE_InitImage(image.data(), layout.rate, layout.frame_len), QV_VOICE_OK);
}

double level_db(double above, double below) { return 10 * std::log10((above + 1) / (below + 1)); }

// Without suppressor the output is the linear filter's, a frame late: both returns are the same, a frame apart.
TEST(Trace, echo_return_losses_are_those_of_the_frames) {
  for (const Layout &layout : all_layouts) {
    start(layout, 0);
    const auto n = size_t(layout.frame_len);
    // An echo from frame 3 on, and a burst of the near end.
    Call call(layout, 150);
    call.far = noise_samples(21, call.far.size(), 9000);
    const Samples burst = noise_samples(22, call.mic.size(), 20000);
    for (size_t i = 0; i < call.mic.size(); ++i)
      call.mic[i] = int16_t(i < 3 * n ? 0 : call.far[i - n - 10] / 4 + (i / n / 10 == 10 ? burst[i] : 0));
    Samples out(n);
    double linear_before = 0;
    int32_t refreshed = 0, thrown_back = 0, moved = 0, delay_before = 0;
    for (size_t at = 0; at < call.mic.size(); at += n) {
      const AecMdfState &filter = process.stAec.stMdf;
      const std::vector<float> foreground(filter.pfWFg, filter.pfWFg + 4 * n);
      ASSERT_EQ(QV_VOICE_ProcessTx(&call.mic[at], &call.far[at], out.data(), 0), QV_VOICE_OK);
      const QvVoiceTrace t = trace();
      const double mic_before = at ? energy(std::span(call.mic).subspan(at - n, n)) : 0;
      EXPECT_NEAR(t.erle_db, level_db(mic_before, energy(out)), 1e-3) << layout << ", sample " << at;
      EXPECT_NEAR(t.erle_db, linear_before, 0.05) << layout << ", sample " << at; // overlap-add rounds
      linear_before = t.linear_erle_db;
      EXPECT_EQ(t.suppressor_gain, 1.f);
      EXPECT_EQ(t.muted, 0);
      EXPECT_EQ(t.leakage, filter.fLeak);
      EXPECT_EQ(t.filter_adapted, filter.swAdapted);
      EXPECT_EQ(t.delay_changed, t.echo_delay != delay_before);
      moved += t.echo_delay != std::exchange(delay_before, t.echo_delay);
      const bool taken_over = !std::equal(foreground.begin(), foreground.end(), filter.pfWFg);
      const bool same = std::equal(foreground.begin(), foreground.end(), filter.pfWBg);
      EXPECT_LE(taken_over, t.foreground_refreshed);
      EXPECT_LE(t.background_reset, same);
      refreshed += t.foreground_refreshed && taken_over;
      thrown_back += t.background_reset;
    }
    EXPECT_GT(moved, 0) << layout;
    EXPECT_GT(refreshed, 10) << layout;
    EXPECT_GT(thrown_back, 0) << layout;
    EXPECT_EQ(trace().filter_adapted, 1) << layout;
  }
}

TEST(Trace, suppressor_gain_is_its_mean_one_while_passing_none_while_muted) {
  for (const size_t suppressor : {13, 14}) {
    const Layout &layout = all_layouts[1];
    start(layout, suppressor);
    EXPECT_EQ(trace().suppressor_gain, 1.f);
    EXPECT_EQ(trace().talk_state, 2);
    const Call call(layout, 150);
    Samples out(160);
    int32_t passed = 0, muted = 0, between = 0;
    for (size_t at = 0; at < call.mic.size(); at += 160) {
      QV_VOICE_ProcessTx(&call.mic[at], &call.far[at], out.data(), 0);
      const QvVoiceTrace t = trace();
      const bool mute = t.talk_state == 1 || (t.talk_state == 2 && process.stAec.stNlp.swDelayMute == 1);
      EXPECT_EQ(t.talk_state, process.stAec.stDtd.swTalkState);
      EXPECT_EQ(t.muted, mute);
      passed += t.talk_state == 0 && t.suppressor_gain == 1.f;
      muted += mute && t.suppressor_gain == 0.f;
      between += t.talk_state == 2 && !mute && t.suppressor_gain > 0 && t.suppressor_gain <= 1;
    }
    EXPECT_EQ(passed + muted + between, 150);
    EXPECT_GT(std::min({passed, muted, between}), 5);
  }
}

// Means over the bands of both reducers, with the presence that mixes the two gains: gain = floor^(1 - p) present^p.
TEST(Trace, noise_is_that_of_the_reducers) {
  const Layout &layout = all_layouts[1];
  ASSERT_EQ(QV_VOICE_InitImage(busy_image(8000).data(), 8000, 160), QV_VOICE_OK);
  EXPECT_EQ(trace().tx_noise.noise_db, -100.f);
  const Call call(layout, 100);
  Samples sent(160), played(160);
  int32_t between = 0;
  for (size_t at = 0; at < call.mic.size(); at += 160) {
    VOICE_Process(&call.far[at], played.data(), &call.mic[at], sent.data(), 0);
    const QvVoiceTrace t = trace();
    for (const auto &[state, shown] : {std::pair{&process.stAnrTx, &t.tx_noise}, {&process.stAnrRx, &t.rx_noise}}) {
      const AnrEnhance &enh = state->stEnhance;
      double noise = 0, gain = 0, presence = 0;
      for (size_t b = 0; b < 24; ++b) {
        noise += double(enh.pfNoiseBand[b]) / 24;
        gain += double(enh.pfGain[b]) / 24;
        const double p = std::log(enh.pfGain[b] / 0.1) / std::log(enh.pfGainH1[b] / 0.1);
        presence += std::clamp(p, 0.0, 1.0) / 24;
      }
      EXPECT_NEAR(shown->noise_db, noise > 0 ? 10 * std::log10(noise) : -100, 1e-3);
      EXPECT_NEAR(shown->mean_gain, gain, 1e-4);
      EXPECT_NEAR(shown->speech_presence, presence, 1e-3);
      between += presence > 0.1 && presence < 0.9;
    }
  }
  EXPECT_GT(between, 20);
  EXPECT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
}

} // namespace
