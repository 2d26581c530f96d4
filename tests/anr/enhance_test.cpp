// The gain rule: the log-spectral-amplitude gain against its formula, the bounds of the SNRs, and the decisions on
// speech presence at their thresholds.

#include <numbers>

#include "qvvoice/anr/anr.h"
#include "support.h"

namespace {

using namespace qv::test;

constexpr size_t bands = 24, inner = 12;
constexpr float gain_present = 0.543271f; // exp(0.166 / 2) / 2, the approximation's middle branch at v = 1

struct Reducer {
  AnrState state{};
  AnrEnhance &enh = state.stEnhance;

  Reducer() {
    const AnrPara para{1, 8000, 160, bands, 0.75f, 2, 0.05f, 0.516f, 0.1f};
    ANR_Init(&para, &state);
  }
  ~Reducer() { ANR_Destroy(&state); }
  Reducer(const Reducer &) = delete;

  void seed(const std::vector<float> &x) { ANR_First_Frm(x.data(), bands, &state); }
  void enhance(const std::vector<float> &x) { ANR_Enhance(x.data(), bands, &enh); }
  std::span<float> band(float *array) const { return {array, bands}; }
  bool all_are(float value, float *array) const { return std::ranges::count(band(array), value) == bands; }
};

// Flat bands at an averaged a-priori SNR are given twice their noise: a-priori SNR 1, a-posteriori SNR 2, v = 1.
TEST(GainRule, presence_and_peak_follow_the_frame_average) {
  struct Case {
    const char *what;
    float average, frame_before, peak, peak_after, gain;
  };
  for (const auto &[what, average, frame_before, peak, peak_after, gain] :
       {Case{"below the lower threshold", 0.04f, 0, 0, 0, 0.1f}, Case{"rising, low peak", 0.1f, 0.05f, 0, 1, 0.198905f},
        Case{"rising", 3, 1, 7, 3, gain_present}, Case{"rising, high peak", 20, 1, 0, 10, gain_present},
        Case{"falling, before any peak", 0.1f, 1000, 0, 0, 0.198905f},
        Case{"falling, 17 dB below the peak", 0.1f, 0.2f, 5, 5, 0.1f},
        Case{"falling, between the bounds", 0.1f, 0.2f, 1, 1, 0.124718f},
        Case{"falling, near the peak", 0.6f, 0.7f, 1, 1, gain_present},
        Case{"absence just above 0.95", 0.1f, 0.2f, 1.413f, 1.413f, 0.1f},
        Case{"absence just below 0.95", 0.1f, 0.2f, 1.41f, 1.41f, 0.112000f}}) {
    Reducer r;
    r.seed(std::vector<float>(bands, 100.f));
    std::ranges::fill(r.band(r.enh.pfAvgSnr), average);
    std::ranges::fill(r.band(r.enh.pfPriorSnrPrev), average);
    r.enh.fSnrFrame = frame_before;
    r.enh.fSnrPeak = peak;
    r.enhance(std::vector<float>(bands, 200.f));
    EXPECT_FLOAT_EQ(r.enh.fSnrFrame, average) << what;
    EXPECT_EQ(r.enh.fSnrPeak, peak_after) << what;
    EXPECT_NEAR(r.enh.pfGainH1[inner], gain_present, 2e-6) << what << "; the upper branch gives 0.543259";
    EXPECT_NEAR(r.enh.pfGain[inner], gain, 2e-6) << what;
    EXPECT_TRUE(gain > 0.1f || r.all_are(0.1f, r.enh.pfGain)) << what;
  }
}

// Ephraim and Malah's gain xi / (1 + xi) exp(E1(v) / 2), v = gamma xi / (1 + xi): the approximation of the integral
// keeps within 3 % of it above v = 1, within 6 % below.
TEST(GainRule, gain_if_speech_is_present_is_the_log_spectral_one) {
  Reducer r;
  int compared[3] = {};
  for (float prior_before = 0.05f; prior_before < 40; prior_before *= 1.7f) {
    r.seed(std::vector<float>(bands, 1.f));
    std::ranges::fill(r.band(r.enh.pfPostSnr), prior_before);
    std::vector<float> x(bands);
    for (size_t k = 0; k < bands; ++k)
      x[k] = 0.04f * std::pow(1.34f, float(k));
    r.enhance(x);
    for (size_t k = 0; k < bands; ++k) {
      const double prior = r.enh.pfPriorSnr[k], wiener = prior / (1 + prior), v = wiener * r.enh.pfPostSnr[k];
      EXPECT_NEAR(r.enh.pfGainH1[k] / (wiener * std::exp(-std::expint(-v) / 2)), 1, v > 1 ? 0.03 : 0.06) << "v = " << v;
      ++compared[v < 0.1 ? 0 : v <= 1 ? 1 : 2];
    }
  }
  EXPECT_GT(std::ranges::min(compared), 20);
}

// After a frame with the a-posteriori SNR 3: a-priori SNR 0.92 * gain^2 * 3 and the weighted excess.
TEST(GainRule, ratios_are_bounded_and_decision_directed) {
  struct Case {
    const char *what;
    float x, noise, gain_before, posterior, prior;
  };
  for (const auto &[what, x, noise, gain_before, posterior, prior] :
       {Case{"far above", 500, 1, 0, 40, 3.12f}, Case{"at the ceiling", 40, 1, 0, 40, 3.12f},
        Case{"no noise", 1, 0, 0, 40, 3.12f}, Case{"nothing at all", 0, 0, 0, 40, 3.12f},
        Case{"silent", 0, 1, 0, 0.0316f, 0.0316f}, Case{"below the noise", 0.5f, 1, 0.5f, 0.5f, 0.69f},
        Case{"above the noise", 6, 1, 0.5f, 6, 0.69f + 0.4f}}) {
    Reducer r;
    r.seed(std::vector<float>(bands, 1.f));
    r.enh.pfNoiseBand[inner] = noise;
    r.enh.pfGainH1[inner] = gain_before;
    r.enh.pfPostSnr[inner] = 3;
    r.enh.pfPriorSnrPrev[inner] = 0.5f;
    std::vector<float> energies(bands, 1.f);
    energies[inner] = x;
    r.enhance(energies);
    EXPECT_FLOAT_EQ(r.enh.pfPostSnr[inner], posterior) << what;
    EXPECT_NEAR(r.enh.pfPriorSnr[inner], prior, 1e-6) << what;
    EXPECT_EQ(r.enh.pfPriorSnrPrev[inner], r.enh.pfPriorSnr[inner]) << what;
    EXPECT_FLOAT_EQ(r.enh.pfAvgSnr[inner], 0.7f + 0.3f * 0.5f) << what << ": of the frame before";
  }
}

// A Bartlett-Hann window over the root of its energy. At the low edge band i takes upper neighbours from distance w - i
// on only.
TEST(GainRule, smoothing_is_a_bartlett_hann_window) {
  for (const int32_t count : {3, 24, 32, 70})
    for (const int32_t half_width : {0, 1, 3, 4, 32, 40}) {
      const int32_t w = std::clamp(half_width, 1, 32);
      const auto tap = [&](int32_t distance) {
        const double t = double(distance) / (2 * w + 2);
        return 0.62 - 0.48 * std::fabs(t) + 0.38 * std::cos(2 * std::numbers::pi * t);
      };
      double energy = 0;
      for (int32_t d = -w; d <= w; ++d)
        energy += tap(d) * tap(d);
      const std::vector<float> in = noise_values(uint32_t(count + w), size_t(count));
      std::vector<float> out(in.size(), 9);
      std::vector<double> expected(in.size());
      for (int32_t i = 0; i < count; ++i)
        for (int32_t d = -w; d <= w; ++d)
          if (i + d >= 0 && i + d < count && (d <= 0 || i >= w - d))
            expected[size_t(i)] += tap(d) * in[size_t(i + d)] / std::sqrt(energy);
      ANR_Smoothing(count, half_width, in.data(), out.data());
      for (size_t i = 0; i < out.size(); ++i)
        EXPECT_NEAR(out[i], expected[i], 1e-5) << count << " bands, half width " << half_width << ", band " << i;
    }
}

} // namespace
