// The noise reducer as a filter of an endless signal: what passes, how late, and how much of the noise goes.

#include <numbers>

#include "reducer.h"

namespace {

using namespace qv::test;

/// A layout's bank and transforms.
struct Services {
  explicit Services(const Layout &layout) {
    VOICE_FftInit();
    VOICE_SignalInit(layout.rate, layout.bands, layout.frame_len);
  }
  ~Services() {
    VOICE_FftDestroy();
    VOICE_SignalDestroy();
  }
  Services(const Services &) = delete;
};

Samples tone(size_t count, double cycles_per_sample, double peak) {
  Samples x(count);
  for (size_t i = 0; i < count; ++i)
    x[i] = int16_t(std::lround(peak * std::cos(2 * std::numbers::pi * cycles_per_sample * double(i))));
  return x;
}

double power(const Samples &x, size_t from) {
  double sum = 0;
  for (size_t i = from; i < x.size(); ++i)
    sum += double(x[i]) * x[i];
  return sum / double(x.size() - from);
}

double attenuation_db(const Samples &in, const Samples &out, size_t from) {
  return 10 * std::log10(power(in, from) / power(out, from));
}

TEST(NoiseReducer, off_it_copies_and_keeps_its_state) {
  for (const Layout &layout : all_layouts) {
    const int32_t n = layout.frame_len;
    Reducer r(layout, 0);
    const Samples in = noise_samples(3, size_t(3 * n), 30000);
    r.state.pfBinGain[n] = 0.25f;
    EXPECT_EQ(r.reduced(in), in) << layout;
    EXPECT_EQ(std::count(r.state.pfBinGain, r.state.pfBinGain + n, 1.f), n);
    EXPECT_EQ(r.state.pfBinGain[n], 0.25f);
    EXPECT_EQ(r.state.swFrameCnt, 0u);
    EXPECT_EQ(std::count(r.state.pfInPrev, r.state.pfInPrev + n, 0.f), n);
  }
}

// Every frame is made a first one: its gains are 1. The packed spectrum is then tapered over its first ten values and
// has no Nyquist value; a tone above the taper comes back one frame late, a constant and an alternating signal do not.
TEST(NoiseReducer, with_gains_of_one_the_signal_comes_back_one_frame_late) {
  for (const Layout &layout : all_layouts) {
    const Services services(layout);
    const auto n = size_t(layout.frame_len);
    for (const double cycles : {0.0, 0.123, 0.31, 0.5}) {
      Reducer r(layout);
      const Samples in = tone(12 * n, cycles, 9000);
      for (size_t at = 0; at < in.size(); at += n) {
        r.state.swFrameCnt = 0;
        const Samples out = r.reduced({&in[at], &in[at] + n});
        const bool passes = cycles > 0 && cycles < 0.5;
        for (size_t i = 0; i < n && at >= 2 * n; ++i)
          ASSERT_NEAR(out[i], passes ? in[at + i - n] : 0, 2) << layout << ", " << cycles << " at " << at + i;
      }
    }
    Reducer r(layout);
    const Samples noise = noise_samples(4, n, 9000);
    std::vector<float> spectrum(2 * n);
    for (size_t i = 0; i < n; ++i)
      spectrum[n + i] = float(noise[i]) * r.state.pfWindow[n + i];
    VOICE_Fft(spectrum.data(), spectrum.data(), int32_t(2 * n));
    for (size_t i = 0; i < 10; ++i)
      spectrum[i] *= float(i) / 10;
    spectrum[2 * n - 1] = 0;
    r.reduced(noise);
    EXPECT_LT(relative_error(spectrum, std::span(r.state.pfSpectrum, 2 * n)), 1e-6) << layout;
    EXPECT_EQ(r.state.pfBinGain[n], 0.f);
  }
}

// Two instances in turn, the second with twice the signal: noise figures are exactly four times, gains are the same.
TEST(NoiseReducer, twice_the_signal_in_another_instance_is_four_times_the_noise) {
  for (const Layout &layout : all_layouts) {
    const Services services(layout);
    Reducer once(layout), twice(layout);
    for (uint32_t frame = 0; frame < 200; ++frame) {
      Samples in = noise_samples(frame, size_t(layout.frame_len), frame % 20 < 8 ? 6000 : 60);
      once.reduced(in);
      std::ranges::transform(in, in.begin(), [](int16_t x) { return int16_t(2 * x); });
      twice.reduced(in);
      for (int32_t k = 0; k < layout.bands; ++k) {
        ASSERT_EQ(twice.enh.pfNoiseBand[k], 4 * once.enh.pfNoiseBand[k]) << layout << ", frame " << frame;
        ASSERT_EQ(twice.enh.pfGain[k], once.enh.pfGain[k]) << layout << ", frame " << frame;
        ASSERT_EQ(twice.est.pfGainPrev[k], twice.enh.pfGainH1[k]) << layout << ", frame " << frame;
        ASSERT_EQ(twice.enh.pfNoiseBand[k], (frame > 0 ? 0.75f : 1.f) * twice.est.pfNoise[k]) << layout;
      }
    }
    EXPECT_GT(std::ranges::max(once.band(once.enh.pfNoiseBand)), 0);
  }
}

// White noise sinks by 14 dB at least, by much the same at both frame lengths of a rate, also after 16 s of digital
// silence, through the denormals and to rest; a tone in it stays.
TEST(NoiseReducer, noise_sinks_at_every_layout_and_a_new_tone_stays) {
  double attenuation[4];
  for (size_t l = 0; l < 4; ++l) {
    const Layout &layout = all_layouts[l];
    const Services services(layout);
    Reducer r(layout);
    const size_t second = size_t(layout.rate / layout.frame_len * layout.frame_len);
    const Samples noise = noise_samples(7, 4 * second, 300);
    EXPECT_EQ(power(r.reduced(Samples(size_t(layout.frame_len))), 0), 0) << layout;
    EXPECT_TRUE(r.all_are(1, r.enh.pfGain)) << layout << ", first frame";
    attenuation[l] = attenuation_db(noise, r.reduced(noise), 2 * second);
    EXPECT_GT(attenuation[l], 14) << layout;
    EXPECT_EQ(power(r.reduced(Samples(16 * second)), second), 0) << layout;
    EXPECT_TRUE(r.all_are(0.1f, r.enh.pfGain)) << layout << ", silence";
    EXPECT_GT(attenuation_db(noise, r.reduced(noise), 2 * second), 14) << layout << ", after silence";
    const Samples loud = tone(4 * size_t(layout.frame_len), 0.1, 6000);
    EXPECT_NEAR(attenuation_db(loud, r.reduced(loud), 2 * size_t(layout.frame_len)), 0, 0.5) << layout;
  }
  EXPECT_NEAR(attenuation[0], attenuation[1], 1.5);
  EXPECT_NEAR(attenuation[2], attenuation[3], 1.5);
}

} // namespace
