// The residual echo suppressor: gain rules at their limits, and its frame: pass, suppress, mute, recover.

#include <gtest/gtest.h>

#include "signals.h"

namespace {

TEST(Suppressor, gain_factors) {
  const std::pair<float, float> hypergeometric[] = {{0.f, 82.157f},   {0.25f, 0.92087f / 0.5000999f},
                                                    {10.f, 1.01296f}, {9.6f, 3.1401f / 3.098403f},
                                                    {1e9f, 1.f},      {-0.001f, 1.f}};
  for (const auto &[x, expected] : hypergeometric)
    EXPECT_NEAR(AEC_NlpHypergeomGainCal(x), expected, 2e-5f * expected) << x;

  const float noise[3] = {0.f, 1.f, 1e12f};
  for (const auto &[db, least] : {std::pair{-40.f, 0.01f}, {-15.f, 0.177828f}}) {
    float floor[3];
    AEC_NlpGainFloorCal(noise, floor, 3, db);
    EXPECT_EQ(floor[0], 0.f);
    EXPECT_NEAR(floor[1], least * std::sqrt(0.5f), 1e-5f);
    EXPECT_NEAR(floor[2], least, 1e-5f);
  }

  const float v[6] = {9, 1, 3, 3, 2, 9};
  float first, second;
  AEC_NlpHnlGet(v, 1, 4, 1, 3, &first, &second);
  EXPECT_EQ(first, 3.f);
  EXPECT_EQ(second, 2.f);
  AEC_NlpHnlGet(v, 1, 4, 4, 2, &first, &second);
  EXPECT_EQ(first, 1.f);
  EXPECT_EQ(second, 1.f);
}

// With a detector that judges nothing and counts nothing: always double talk.
struct Suppressor {
  explicit Suppressor(Layout l, bool ser = false, bool coh = true)
      : layout(l), services(l), gain(size_t(l.n) + 1, 1.f) {
    const AecNlpPara para = {l.n, l.bands(), coh, ser, 1.f, {1, 1, 1, 1, 1, 1, 1, 1}};
    AEC_NlpInit(&para, &st);
    AecDtdPara detector = {};
    detector.swBandNum = l.bands();
    AEC_DtdInit(&detector, &dtd);
  }
  ~Suppressor() { AEC_NlpDestory(&st); }

  Samples frame(const Samples &mic, const Samples &far, Samples io, int32_t talk_state) {
    dtd.swTalkState = talk_state;
    AEC_NlpProcess(mic.data(), far.data(), io.data(), &dtd, &st, gain.data(), 0.1f);
    return io;
  }
  Memories memories() {
    Memories all;
    append(all,
           {st.pfNearTime, st.pfFarTime, st.pfErrTime, st.pfEchoTime, st.pfFarNearCross, st.pfErrNearCross, st.pfSynth,
            st.pfSynthPrev},
           2 * layout.n);
    append(all, {st.pfNearPsd, st.pfFarPsd, st.pfErrPsd, st.pfCohFarNear, st.pfCohErrNear, st.stCoh.pfHnl},
           layout.n + 1);
    append(all, {&st.stCoh.fXdAvgMin, &dtd.fPresenceThr}, 1);
    append(all, {dtd.afResTimeSm}, layout.bands());
    append(all, {gain.data()}, layout.n); // which the noise reducer renews
    if (st.swSerSupEnable == 1)
      append(all, {st.stSer.pfEchoNoise, st.stSer.pfOldPs, st.stSer.pfZeta, st.stSer.pfGain2}, layout.bands());
    return all;
  }

  Layout layout;
  Services services;
  Signal gain;
  AecNlpState st;
  AecDtdState dtd;
};

// One call of the coherence rule with the same value in every bin.
struct Coherence : Suppressor {
  Coherence() : Suppressor({8000, 128}), d(256, 2.f), e(256, 1.f) {}
  float run(float error_coherence, float far_incoherence, float near_power = 1, float error_power = 1) {
    const Signal ced(129, error_coherence), q(129, far_incoherence), sd(129, near_power), se(129, error_power);
    std::fill(e.begin(), e.end(), 1.f);
    AEC_NlpCohCancel(ced.data(), q.data(), d.data(), e.data(), sd.data(), se.data(), 128, 256, &st.stCoh);
    return st.stCoh.pfHnl[50];
  }
  Signal d, e;
};

TEST(Suppressor, coherence_decides_between_near_end_and_echo) {
  Coherence c;
  EXPECT_NEAR(c.run(0, 1), 1 / 1.0001f, 1e-6f) << "silence: the far end was never coherent";
  struct Case {
    float error_coherence, far_incoherence;
    int32_t state;
    float gain;
  };
  // clang-format off
  const Case cases[] = {
      {0.97f, 0.95f, 1, 0.95f},                           // as before; never coherent, so the incoherence
      {0.99f, 0.95f, 0, 0.99f}, {0.96f, 0.85f, 0, 0.96f}, // near end only, and held
      {0.94f, 0.95f, 1, 0.95f}, {0.99f, 0.91f, 0, 0.99f},
      {0.99f, 0.7f, 1, 0.7f},                             // coherent from here on: the lesser of the two
      {0.6f, 0.85f, 1, 0.6f}, {0.97f, 0.85f, 1, 0.85f}};
  // clang-format on
  for (const auto &[ced, q, state, gain] : cases) {
    EXPECT_NEAR(c.run(ced, q), gain / 1.0001f, 2e-5f) << ced << " " << q;
    EXPECT_EQ(c.st.stCoh.swEchoState, state) << ced << " " << q;
  }
  EXPECT_LT(c.st.stCoh.fXdAvgMin, 0.703f);
  c.st.stCoh.fXdAvgMin = 0;
  for (int32_t frame = 0; frame < 2400; ++frame)
    c.run(0.5f, 0.9f);
  EXPECT_NEAR(c.st.stCoh.fXdAvgMin, 0.96f, 1e-4f) << "a minimum of 0 is forgotten in 2500 frames";
  for (const auto &[minimum, gain] : {std::pair{0.9996f, 0.5f}, {1.f, 0.9f}}) {
    c.st.stCoh.fXdAvgMin = minimum;
    EXPECT_NEAR(c.run(0.5f, 0.9f), gain, 1e-4f) << "never coherent again only from 1 on";
  }
}

TEST(Suppressor, a_diverged_filter_is_replaced_by_the_microphone) {
  Coherence c;
  for (const auto &[error_power, diverged] : {std::pair{1.f, 0}, {1.001f, 1}, {0.96f, 1}, {0.95f, 0}, {1.f, 0}}) {
    c.run(1, 1, 1, error_power);
    EXPECT_EQ(c.st.stCoh.swDivergeState, diverged) << error_power;
    EXPECT_EQ(c.e == c.d, diverged == 1) << error_power;
  }
}

TEST(Suppressor, signal_to_echo_ratios_at_their_limits) {
  const Layout layout = {8000, 128};
  struct Case {
    float leak, ps, echo, echo_noise, posterior, least, most;
  };
  // Silence; error power = echo + 1; twice the echo from a leakage of one half on; and between.
  const Case cases[] = {{0, 0, 0, 0, 1e-5f, 0, 1e-3f},
                        {0, 101, 100, 100, 1e-5f, 0, 1},
                        {0.5f, 1e9f, 100, 200, 100, 0.99f, 1.001f},
                        {0.9f, 1e9f, 100, 200, 100, 0.99f, 1.001f},
                        {0.25f, 603, 200, 300, 603 / 301.f - 1, 0.1f, 1}};
  for (const auto &[leak, ps, echo, echo_noise, posterior, least, most] : cases) {
    Suppressor s(layout, true, false);
    const Signal power(24, ps), echo_power(24, echo), silent(24, 0.f);
    AEC_NlpSerCancel(power.data(), echo_power.data(), 24, &s.st.stSer, leak);
    EXPECT_NEAR(s.st.stSer.pfEchoNoise[7], echo_noise, 1e-3f);
    EXPECT_NEAR(s.st.stSer.pfPost[7], posterior, 1e-5f);
    EXPECT_LE(s.st.stSer.pfOldPs[7], ps) << "the wanted part of it";
    EXPECT_TRUE(s.st.stSer.pfGain2[7] >= least && s.st.stSer.pfGain2[7] <= most) << s.st.stSer.pfGain2[7];
    AEC_NlpSerCancel(power.data(), silent.data(), 24, &s.st.stSer, leak);
    EXPECT_FLOAT_EQ(s.st.stSer.pfEchoNoise[7], 0.6f * echo_noise) << "released by 0.6 per frame";
  }
}

TEST(Suppressor, passes_a_frame_late_while_the_far_end_is_silent) {
  for (const Layout layout : layouts)
    for (const int32_t switches : {0, 1, 2, 3}) {
      Suppressor s(layout, switches & 1, switches & 2);
      Samples before(size_t(layout.n), 0);
      for (int32_t frame = 0; frame < 5; ++frame) {
        const Samples in = sampled(white_noise(layout.n, 5000.f, uint32_t(frame)));
        const Samples out = s.frame(in, before, in, 0);
        for (size_t i = 0; i < out.size(); ++i)
          ASSERT_NEAR(out[i], before[i], 1) << layout << " frame " << frame;
        before = in;
      }
    }
}

// Only the Nyquist bin is free of the noise reducer's gain. It passes, and is cut where anything is suppressed.
TEST(Suppressor, noise_gain_shapes_all_but_the_nyquist_bin) {
  Suppressor s({8000, 160});
  std::fill(s.gain.begin(), s.gain.end() - 1, 0.f);
  Samples alternating(160, 1000), far = sampled(white_noise(160, 3000.f, 1));
  for (size_t i = 1; i < 160; i += 2)
    alternating[i] = -1000;
  for (int32_t frame = 0; frame < 2; ++frame)
    s.frame(alternating, far, alternating, 0);
  const Samples passed = s.frame(alternating, far, alternating, 0);
  EXPECT_NEAR(passed[80], 1000, 1);
  s.frame(alternating, far, alternating, 2);
  EXPECT_EQ(s.frame(alternating, far, alternating, 2), Samples(160, 0));
}

TEST(Suppressor, single_talk_and_a_moved_delay_mute) {
  for (const bool moved : {false, true})
    for (const bool ser : {false, true}) {
      Suppressor s({16000, 256}, ser, !ser);
      s.dtd.swCountMin = moved ? 0 : 1; // otherwise nothing is counted: single talk at once
      const Samples mic = sampled(white_noise(256, 3000.f, 1)), silent(256, 0);
      s.frame(mic, mic, mic, 0);
      s.st.swDelayMute = moved;
      EXPECT_NE(s.frame(mic, mic, mic, 2), silent) << "the half that was on its way";
      EXPECT_EQ(s.dtd.swTalkState, moved ? 2 : 1);
      EXPECT_EQ(s.frame(mic, mic, mic, 2), silent);
    }
}

TEST(Suppressor, silent_far_end_bands_pass_but_for_the_highest_bins) {
  Suppressor s({8000, 128});
  std::fill_n(s.dtd.afBandFarThr, 24, 1e9f);
  const Samples same = sampled(white_noise(128, 3000.f, 1));
  for (int32_t frame = 0; frame < 20; ++frame)
    s.frame(same, same, Samples(128, 1), 2); // far end and microphone fully coherent
  EXPECT_EQ(s.st.stCoh.pfHnl[125], 1.f);
  EXPECT_LT(s.st.stCoh.pfHnl[126], 0.5f);
}

TEST(Suppressor, output_saturates) {
  Suppressor s({8000, 128});
  const std::pair<float, int16_t> cases[] = {{-32767.5f, -32767}, {-32767.6f, -32768}, {32766.5f, 32767},
                                             {32766.4f, 32766},   {-0.5f, 0},          {-0.6f, -1},
                                             {1e30f, 32767},      {nan_value, 0}};
  for (size_t i = 0; i < std::size(cases); ++i)
    s.st.pfSynthPrev[128 + i] = cases[i].first;
  const Samples silent(128, 0), out = s.frame(silent, silent, silent, 0);
  for (size_t i = 0; i < std::size(cases); ++i)
    EXPECT_EQ(out[i], cases[i].second) << cases[i].first;
}

// Against an undisturbed twin: at most one frame is lost, nothing bursts, and the difference dies away.
TEST(Suppressor, survives_an_undefined_value_in_any_state) {
  const Layout layout = {8000, 160};
  for (const bool ser : {false, true})
    for (size_t m = 0; m < Suppressor(layout, ser).memories().size(); ++m) {
      Suppressor hit(layout, ser), twin(layout, ser);
      int32_t muted = 0;
      for (uint32_t frame = 0; frame < 150; ++frame) {
        const std::span<float> memory = hit.memories()[m];
        if (frame == 50)
          memory[memory.size() / 3] = nan_value;
        const Signal far = speech_like(160, 8000, 3000.f, frame), near = white_noise(160, 500.f, frame);
        const Samples mic = sampled(far + near), io = sampled(near), ref = sampled(far);
        const Samples out = hit.frame(mic, ref, io, 2), expected = twin.frame(mic, ref, io, 2);
        std::ranges::fill(hit.gain, 1.f);
        muted += frame >= 50 && out == Samples(160, 0);
        for (size_t i = 0; i < out.size(); ++i)
          ASSERT_LE(std::abs(out[i] - (frame < 140 ? 0 : expected[i])), frame < 140 ? 4000 : 60)
              << "memory " << m << ", frame " << frame;
      }
      EXPECT_LE(muted, 1) << "memory " << m;
      EXPECT_TRUE(all_finite(hit.memories())) << "memory " << m;
    }
}

} // namespace
