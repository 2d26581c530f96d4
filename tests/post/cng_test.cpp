// Comfort noise: what it sounds like, and what it leaves alone.

#include "qvvoice/post/cng.h"

#include <numbers>

#include "qvvoice/dsp/fft.h"
#include "qvvoice/dsp/filter_bank.h"
#include "support.h"

namespace {

using namespace qv::test;

// Levels and the frame by their formulas in double precision: the source under a Hann window gets the bands'
// amplitudes, without the bins that its mean reaches, and overlaps its last frame. The levels go on while the far end
// is silent.
TEST(ComfortNoise, every_frame_is_that_of_the_formulas) {
  int32_t capped = 0;
  for (const auto &[layout, gain] : {std::pair{all_layouts[1], 100.f}, {all_layouts[2], 60.f}}) {
    const auto n = size_t(layout.frame_len), f = 2 * n, bands = size_t(layout.bands);
    VOICE_FftInit();
    VOICE_SignalInit(layout.rate, layout.bands, layout.frame_len);
    const CngPara para{1, layout.rate, layout.frame_len, 20, gain, 0.92f, 0.3f};
    CngState state{};
    CNG_Init(&para, &state);
    std::vector<double> level(bands), source(f), tail(n);
    for (uint32_t frame = 0; frame < 80; ++frame) {
      const int32_t talk_state = frame % 20 == 19 ? 0 : 1 + frame % 2;
      std::vector<float> noise = noise_values(2 * frame, bands, 3.f), error = noise_values(2 * frame + 1, bands, 3.f);
      for (size_t b = 0; b < bands; ++b) {
        noise[b] = std::exp(noise[b]) * (b > 17 ? 30.f : 1.f);
        error[b] = std::exp(error[b]);
      }
      for (size_t b = 0; b < bands; ++b) {
        const double across =
            b == 0 || b == bands - 1 ? double(error[b]) : 0.3 * error[b - 1] + 0.4 * error[b] + 0.3 * error[b + 1];
        level[b] = std::min(0.92 * level[b] + 0.08 * std::sqrt(noise[b] + 0.3 * across), 4.0);
        capped += level[b] == 4;
      }
      const Samples in = noise_samples(frame, n, 1000);
      Samples out(n);
      std::srand(frame);
      CNG_Process(in.data(), out.data(), talk_state, noise.data(), error.data(), &state);
      const std::vector<float> levels(level.begin(), level.end());
      for (size_t b = 0; b < bands; ++b)
        EXPECT_NEAR(state.pfBandLevel[b], level[b], 1e-4) << "frame " << frame << ", band " << b;
      EXPECT_EQ(state.swActive, talk_state != 0);
      if (talk_state == 0) {
        EXPECT_EQ(out, in);
        continue;
      }
      std::srand(frame);
      std::copy_n(source.begin() + int64_t(n), n, source.begin());
      std::generate_n(source.begin() + int64_t(n), n,
                      [peak = 20.0 * double(gain)] { return peak * std::rand() / 2147483648.0; });
      std::vector<float> spectrum(f), amplitude(n + 1);
      for (size_t i = 0; i < f; ++i)
        spectrum[i] = float(source[i] * (0.5 - 0.5 * std::cos(2 * std::numbers::pi * double(i) / double(f))));
      VOICE_Fft(spectrum.data(), spectrum.data(), int32_t(f));
      filterbank_compute_psd(levels.data(), amplitude.data());
      for (size_t i = 0; i < f; ++i)
        spectrum[i] *= i < 3 ? 0 : amplitude[(i + 1) / 2];
      VOICE_Ifft(spectrum.data(), spectrum.data(), int32_t(f));
      for (size_t i = 0; i < n; ++i) {
        EXPECT_NEAR(out[i], in[i] + spectrum[i] + tail[i], 0.6) << "frame " << frame << ", sample " << i;
        tail[i] = spectrum[n + i];
      }
    }
    CNG_Destroy(&state);
    VOICE_SignalDestroy();
    VOICE_FftDestroy();
  }
  EXPECT_GT(capped, 100);
}

} // namespace
