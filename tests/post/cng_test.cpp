// Comfort noise: what it sounds like, and what it leaves alone.

#include "qvvoice/post/cng.h"

#include "qvvoice/dsp/fft.h"
#include "qvvoice/dsp/filter_bank.h"
#include "support.h"

namespace {

using namespace qv::test;

// Flat levels L pass the source but for its mean: rms L A / sqrt(12) of a uniform one in [0, A), without DC. While the
// far end is silent nothing is added.
TEST(ComfortNoise, flat_levels_give_the_source_without_its_mean) {
  for (const Layout &layout : all_layouts)
    for (const float gain : {50.f, 150.f}) {
      VOICE_FftInit();
      VOICE_SignalInit(layout.rate, layout.bands, layout.frame_len);
      const CngPara para{1, layout.rate, layout.frame_len, 20, gain, 0.92f, 0.3f};
      CngState state{};
      CNG_Init(&para, &state);
      std::fill_n(state.pfBandLevel, layout.bands, 2.f);
      const std::vector<float> noise(size_t(layout.bands), 4.f), error(noise.size());
      const Samples silent(size_t(layout.frame_len));
      Samples out(silent.size(), 77);
      CNG_Process(silent.data(), out.data(), 0, noise.data(), error.data(), &state);
      EXPECT_EQ(out, silent) << layout;
      double sum = 0, squares = 0;
      constexpr int frames = 300;
      for (int frame = -2; frame < frames; ++frame) {
        CNG_Process(silent.data(), out.data(), 1, noise.data(), error.data(), &state);
        for (const int16_t sample : out)
          sum += frame < 0 ? 0 : sample, squares += frame < 0 ? 0 : double(sample) * sample;
      }
      const double count = frames * layout.frame_len, rms = std::sqrt(squares / count);
      EXPECT_NEAR(rms, 2 * 20 * gain / std::sqrt(12), 0.02 * rms) << layout;
      EXPECT_NEAR(sum / count, 0, 0.01 * rms) << layout;
      CNG_Destroy(&state);
      VOICE_SignalDestroy();
      VOICE_FftDestroy();
    }
}

} // namespace
