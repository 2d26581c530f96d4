// Comfort noise: what it sounds like, and what it leaves alone.

#include "qvvoice/post/cng.h"

#include <numbers>

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

// Levels and the frame by their formulas in double precision: the source under a Hann window gets the bands'
// amplitudes, without the bins that its mean reaches, and overlaps its last frame. The levels go on while the far end
// is silent.
TEST(ComfortNoise, every_frame_is_that_of_the_formulas) {
  constexpr size_t n = 160, f = 2 * n, bands = 24;
  VOICE_FftInit();
  VOICE_SignalInit(8000, bands, n);
  const CngPara para{1, 8000, n, 20, 100, 0.92f, 0.3f};
  CngState state{};
  CNG_Init(&para, &state);
  std::vector<double> level(bands), source(f), tail(n);
  int32_t capped = 0;
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
    std::copy_n(source.begin() + n, n, source.begin());
    std::generate_n(source.begin() + n, n, [] { return 2000.0 * std::rand() / 2147483648.0; });
    std::vector<float> spectrum(f), amplitude(n + 1);
    for (size_t i = 0; i < f; ++i)
      spectrum[i] = float(source[i] * (0.5 - 0.5 * std::cos(2 * std::numbers::pi * double(i) / f)));
    VOICE_Fft(spectrum.data(), spectrum.data(), f);
    filterbank_compute_psd(levels.data(), amplitude.data());
    for (size_t i = 0; i < f; ++i)
      spectrum[i] *= i < 3 ? 0 : amplitude[(i + 1) / 2];
    VOICE_Ifft(spectrum.data(), spectrum.data(), f);
    for (size_t i = 0; i < n; ++i) {
      EXPECT_NEAR(out[i], in[i] + spectrum[i] + tail[i], 0.6) << "frame " << frame << ", sample " << i;
      tail[i] = spectrum[n + i];
    }
  }
  EXPECT_GT(capped, 100);
  CNG_Destroy(&state);
  VOICE_SignalDestroy();
  VOICE_FftDestroy();
}

} // namespace
