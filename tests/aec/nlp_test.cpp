// The double-talk detector at its boundaries; the residual echo suppressor: mute and recover.

#include "signals.h"

namespace {

using namespace qv::test;

TEST(DoubleTalk, the_far_end_is_silent_after_more_than_five_quiet_frames) {
  AecDtdState st = {};
  st.swFrameLen = 160;
  st.fFarActiveThr = 100.f;
  st.swFarSilentHang = 5;
  // A peak at the threshold is loud; the count then starts again.
  for (const auto &[level, frames, state] :
       {std::array{99, 5, 2}, {99, 1, 0}, {-100, 1, 2}, {99, 5, 2}, {99, 1, 0}, {-32768, 1, 2}}) {
    for (int32_t i = 0; i < frames; ++i)
      AEC_DtdProcessPassJudge(Samples(160, int16_t(level)).data(), &st);
    EXPECT_EQ(st.swTalkState, state) << level;
  }
}

// A service that the signal path does without, as the next.
TEST(DoubleTalk, gain_smoothing_keeps_the_edges_and_negative_gains) {
  const float in[7] = {1, 2, 1, 1, -0.2f, 3, 4};
  float out[7] = {9, 9, 1, 0, 1, 9, 9};
  AEC_DtdGainSmooth(in, out, 7);
  const float expected[7] = {
      1, 2, 0.6f + 0.4f * (0.1f + 0.4f + 0.4f + 0.2f - 0.02f), 0.4f * (0.2f + 0.2f + 0.4f - 0.04f + 0.3f), -0.2f, 3, 4};
  for (int32_t b = 0; b < 7; ++b)
    EXPECT_NEAR(out[b], expected[b], 1e-6f) << b;
}

TEST(Suppressor, ranks_of_a_range_count_from_its_largest_and_stay_within) {
  const float v[6] = {9, 1, 3, 3, 2, 9};
  float first, second;
  AEC_NlpHnlGet(v, 1, 4, 1, 3, &first, &second);
  EXPECT_EQ(std::pair(first, second), std::pair(3.f, 2.f));
  AEC_NlpHnlGet(v, 1, 4, 4, 2, &first, &second);
  EXPECT_EQ(std::pair(first, second), std::pair(1.f, 1.f));
}

// With a detector that judges nothing and counts nothing: always double talk.
struct Frames : Suppressor {
  explicit Frames(const Layout &layout, bool ser = false)
      : Suppressor(layout, true, ser), n(size_t(layout.frame_len)), bands(size_t(layout.bands)), gain(n + 1, 1.f) {
    AecDtdPara detector = {};
    detector.swBandNum = layout.bands;
    AEC_DtdInit(&detector, &dtd);
  }

  Samples frame(const Samples &mic, const Samples &far, Samples io, int32_t talk_state) {
    dtd.swTalkState = talk_state;
    AEC_NlpProcess(mic.data(), far.data(), io.data(), &dtd, &st, gain.data(), 0.1f);
    return io;
  }
  Memories memories() {
    Memories all = {{gain.data(), n}, {&st.stCoh.fXdAvgMin, 1}, {&dtd.fPresenceThr, 1}, {dtd.afResTimeSm, bands}};
    for (float *values : {st.pfNearTime, st.pfFarTime, st.pfErrTime, st.pfEchoTime, st.pfFarNearCross,
                          st.pfErrNearCross, st.pfSynth, st.pfSynthPrev})
      all.emplace_back(values, 2 * n);
    for (float *values : {st.pfNearPsd, st.pfFarPsd, st.pfErrPsd, st.pfCohFarNear, st.pfCohErrNear, st.stCoh.pfHnl})
      all.emplace_back(values, n + 1);
    if (st.swSerSupEnable == 1)
      for (float *values : {st.stSer.pfEchoNoise, st.stSer.pfOldPs, st.stSer.pfZeta, st.stSer.pfGain2})
        all.emplace_back(values, bands);
    return all;
  }

  const size_t n, bands;
  Signal gain;
  AecDtdState dtd;
};

TEST(Suppressor, replaces_a_diverged_filter_by_the_microphone_and_forgets_coherence_in_2500_frames) {
  Frames s(all_layouts[0]);
  AecNlpCohState &coh = s.st.stCoh;
  const Signal error_coherence(129, 0.5f), incoherence(129, 0.9f), near_psd(129, 1.f), mic(256, 2.f);
  Signal out;
  const auto gain = [&](float error_power) {
    out.assign(256, 1.f);
    AEC_NlpCohCancel(error_coherence.data(), incoherence.data(), mic.data(), out.data(), near_psd.data(),
                     Signal(129, error_power).data(), 128, 256, &coh);
    return coh.pfHnl[50];
  };
  for (const auto &[error_power, diverged] :
       {std::pair{1.f, false}, {1.001f, true}, {0.96f, true}, {0.95f, false}, {1.f, false}}) {
    EXPECT_NEAR(gain(error_power), 0.9f, 1e-4f) << "never coherent";
    EXPECT_EQ(out == mic, diverged) << error_power;
  }
  coh.fXdAvgMin = 0;
  int32_t frames = 0;
  while (gain(1.f) < 0.6f && frames < 5000)
    ++frames;
  EXPECT_NEAR(frames, 2500, 1);
}

// Against an undisturbed twin: at most one frame is lost, nothing bursts, and the difference dies away.
TEST(Suppressor, survives_an_undefined_value_in_any_state) {
  const Layout &layout = all_layouts[1];
  for (const bool ser : {false, true})
    for (size_t m = 0; m < Frames(layout, ser).memories().size(); ++m) {
      Frames hit(layout, ser), twin(layout, ser);
      int32_t muted = 0;
      for (uint32_t frame = 0; frame < 150; ++frame) {
        const std::span<float> memory = hit.memories()[m];
        if (frame == 50)
          memory[memory.size() / 3] = NAN;
        const Signal far = talk(160, 8000, 3000, frame), near = white(160, 500, frame + 1000);
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
