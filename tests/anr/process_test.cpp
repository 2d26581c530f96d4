// The noise reducer as a filter of an endless signal: how much of the noise goes, and what stays.

#include <numbers>

#include "qvvoice/anr/anr.h"
#include "qvvoice/dsp/fft.h"
#include "qvvoice/dsp/filter_bank.h"
#include "support.h"

namespace {

using namespace qv::test;

// White noise sinks by 14 dB at least, by much the same at both frame lengths of a rate, also after 16 s of digital
// silence, through the denormals and to rest; a tone in it stays.
TEST(NoiseReducer, noise_sinks_at_every_layout_and_a_new_tone_stays) {
  double sunk[4];
  for (size_t l = 0; l < 4; ++l) {
    const Layout &layout = all_layouts[l];
    SCOPED_TRACE(layout);
    VOICE_FftInit();
    VOICE_SignalInit(layout.rate, layout.bands, layout.frame_len);
    const AnrPara para{1, layout.rate, layout.frame_len, layout.bands, 0.75f, 2, 0.05f, 0.516f, 0.1f};
    AnrState state;
    ANR_Init(&para, &state);
    const auto n = size_t(layout.frame_len), second = size_t(layout.rate) / n * n;
    const auto reduced = [&](Samples signal) {
      for (size_t at = 0; at < signal.size(); at += n)
        ANR_Process(&signal[at], &signal[at], &state);
      return signal;
    };
    const auto attenuation_db = [&](const Samples &in, size_t from) {
      return 10 * std::log10(energy(std::span(in).subspan(from)) /
                             energy(std::span<const int16_t>(reduced(in)).subspan(from)));
    };
    const Samples noise = noise_samples(7, 4 * second, 300);
    sunk[l] = attenuation_db(noise, 2 * second);
    EXPECT_GT(sunk[l], 14);
    const Samples rested = reduced(Samples(16 * second));
    EXPECT_EQ(energy(std::span(rested).subspan(second)), 0);
    EXPECT_EQ(*std::max_element(state.stEnhance.pfGain, state.stEnhance.pfGain + layout.bands), 0.1f) << "silence";
    EXPECT_GT(attenuation_db(noise, 2 * second), 14) << "after silence";
    Samples tone(4 * n);
    for (size_t i = 0; i < tone.size(); ++i)
      tone[i] = int16_t(std::lround(6000 * std::cos(0.2 * std::numbers::pi * double(i))));
    EXPECT_NEAR(attenuation_db(tone, 2 * n), 0, 0.5);
    ANR_Destroy(&state);
    VOICE_FftDestroy();
    VOICE_SignalDestroy();
  }
  EXPECT_NEAR(sunk[0], sunk[1], 1.5);
  EXPECT_NEAR(sunk[2], sunk[3], 1.5);
}

} // namespace
