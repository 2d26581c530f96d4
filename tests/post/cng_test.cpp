// Comfort noise: how its level follows the bands, when it is added, and what it sounds like.

#include "qvvoice/post/cng.h"

#include <cstdlib>

#include "qvvoice/dsp/fft.h"
#include "qvvoice/dsp/filter_bank.h"
#include "support.h"

namespace {

using namespace qv::test;

struct Generator {
  CngState state{};
  std::vector<float> noise, error; // band powers
  Generator(const Layout &layout, float level, float gain, int32_t enable = 1)
      : noise(size_t(layout.bands)), error(size_t(layout.bands)) {
    VOICE_FftInit();
    VOICE_SignalInit(layout.rate, layout.bands, layout.frame_len);
    const CngPara para{enable, layout.rate, layout.frame_len, level, gain, 0.92f, 0.3f};
    CNG_Init(&para, &state);
  }
  ~Generator() {
    CNG_Destroy(&state);
    VOICE_SignalDestroy();
    VOICE_FftDestroy();
  }
  Generator(const Generator &) = delete;

  Samples added_to(int16_t sample, int32_t talk_state) {
    const Samples in(size_t(state.swFrameLen), sample);
    Samples out(in.size(), 77);
    CNG_Process(in.data(), out.data(), talk_state, noise.data(), error.data(), &state);
    return out;
  }
};

// L = 0.92 L + 0.08 sqrt(noise + 0.3 error), the error smoothed 0.3, 0.4, 0.3 but for the edges; at most 4.
TEST(ComfortNoise, levels_follow_noise_and_smoothed_error_up_to_the_cap) {
  for (const Layout &layout : all_layouts) {
    Generator g(layout, 0, 0);
    const auto last = size_t(layout.bands) - 1;
    g.error[0] = g.error[5] = g.error[last - 1] = 1000;
    g.noise[5] = 16;
    g.noise[9] = 1e6f;
    g.noise[12] = -1; // no root: the cap
    for (const float kept : {0.f, 0.92f}) {
      g.added_to(0, 0);
      const auto expect = [&](size_t band, double level) {
        EXPECT_NEAR(g.state.pfBandLevel[band], level, 1e-5) << layout << ", band " << band;
      };
      for (const auto &[band, power] :
           {std::pair(size_t(0), 300.0), {1, 90.0}, {2, 0.0}, {4, 90.0}, {5, 136.0}, {last - 1, 120.0}, {last, 0.0}})
        expect(band, 0.08 * std::sqrt(power) * (kept > 0 ? kept : 1));
      for (const size_t band : {9, 12})
        expect(band, kept > 0 ? 4 * kept : 4);
      std::ranges::fill(g.noise, 0.f); // the levels fade
      std::ranges::fill(g.error, 0.f);
    }
  }
}

// Off: a copy, nothing moves. Far end silent: a copy, the level moves, the source and the tail wait.
TEST(ComfortNoise, added_only_while_the_far_end_is_not_silent) {
  const Layout &layout = all_layouts[1];
  const Samples untouched(size_t(layout.frame_len), 1000);
  for (const int32_t enable : {0, 1}) {
    Generator g(layout, 100, 50, enable);
    std::ranges::fill(g.noise, 16.f);
    std::srand(1);
    const int next_random = std::rand();
    std::srand(1);
    EXPECT_EQ(g.added_to(1000, enable == 0), untouched);
    EXPECT_EQ(g.state.pfBandLevel[3] > 0, enable != 0);
    EXPECT_EQ(std::rand(), next_random);
  }
  Generator g(layout, 100, 50);
  std::ranges::fill(g.noise, 16.f);
  for (const int32_t talk_state : {1, 2, 0})
    EXPECT_EQ(g.added_to(1000, talk_state) == untouched, talk_state == 0);
  const std::vector<float> tail(g.state.pfOverlap, g.state.pfOverlap + layout.frame_len);
  std::ranges::fill(g.noise, 0.f);
  std::fill_n(g.state.pfBandLevel, layout.bands, 0.f);
  const Samples after_pause = g.added_to(32760, 1); // the tail of the last active frame alone
  for (size_t i = 0; i < tail.size(); ++i)
    EXPECT_EQ(after_pause[i], std::min(std::floor(32760.5f + tail[i]), 32767.f)) << i;
}

// Flat levels L pass the source but for its mean: rms L A / sqrt(12) of a uniform one in [0, A), without DC.
TEST(ComfortNoise, flat_levels_give_the_source_without_its_mean) {
  for (const Layout &layout : all_layouts) {
    for (const float gain : {50.f, 150.f}) {
      Generator g(layout, 20, gain);
      std::ranges::fill(g.noise, 4.f);
      std::fill_n(g.state.pfBandLevel, layout.bands, 2.f);
      double sum = 0, squares = 0;
      constexpr int frames = 300;
      for (int frame = -2; frame < frames; ++frame)
        for (const int16_t sample : g.added_to(0, 1))
          sum += frame < 0 ? 0 : sample, squares += frame < 0 ? 0 : double(sample) * sample;
      const double count = frames * layout.frame_len, rms = std::sqrt(squares / count);
      EXPECT_NEAR(rms, 2 * 20 * gain / std::sqrt(12), 0.02 * rms) << layout;
      EXPECT_NEAR(sum / count, 0, 0.01 * rms) << layout;
      for (const int32_t cleared : {0, 1, 2, 2 * layout.frame_len - 1})
        EXPECT_EQ(g.state.pfSpectrum[cleared], 0.f) << layout;
    }
  }
}

} // namespace
