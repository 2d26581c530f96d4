// Both suppressors' gains, against their formulas in double precision and at the boundaries of their decisions.

#include "signals.h"

namespace {

using namespace qv::test;

constexpr size_t bands = 24, bins = 129;

/// Odds divided, after the power: g' = e / (d (1 - e) + e), e = g^exponent.
double shaped(double gain, double exponent, double divisor) {
  const double e = std::pow(gain, exponent);
  return e / (divisor * (1 - e) + e + 0.0001);
}

double sigmoid(double x) { return x / (x + 0.15); }

/// (Gamma(5/4) 1F1(-1/4; 1; -x))^2 / sqrt(x) by its series (Kummer's transformation keeps every term positive).
double amplitude_gain(double x) {
  double term = 1, sum = 1;
  for (int k = 0; k < 200; ++k)
    sum += term *= (1.25 + k) / (1.0 + k) / (1.0 + k) * x;
  return std::pow(std::tgamma(1.25) * std::exp(-x) * sum, 2) / std::sqrt(x);
}

TEST(EchoRatioGain, amplitude_gain_is_the_hypergeometric_one) {
  for (int step = 1; step < 20;
       ++step) // at the table's points, where only its rounding and the 1e-4 under the root count
    EXPECT_NEAR(AEC_NlpHypergeomGainCal(0.5f * float(step)) / amplitude_gain(0.5 * step), 1, 1.2e-4) << step;
  EXPECT_NEAR(AEC_NlpHypergeomGainCal(0.25f), (0.82157 + 1.02017) / 2 / std::sqrt(0.2501), 1e-5);
  EXPECT_NEAR(AEC_NlpHypergeomGainCal(9.9f), (0.2 * 3.12431 + 0.8 * 3.20326) / std::sqrt(9.9001), 1e-5);
  EXPECT_NEAR(AEC_NlpHypergeomGainCal(10.f), 1 + 0.1296 / 10, 1e-6);
  EXPECT_EQ(AEC_NlpHypergeomGainCal(-0.1f), 1.f);
}

TEST(EchoRatioGain, floor_leaves_so_much_of_the_echo) {
  const float noise[3] = {0, 1, 1000};
  float floor[3];
  AEC_NlpGainFloorCal(noise, floor, 3, -20.f);
  EXPECT_EQ(floor[0], 0.f);
  EXPECT_NEAR(floor[1], 0.1 / std::sqrt(2), 1e-6);
  EXPECT_NEAR(floor[2], 0.1 * std::sqrt(1000 / 1001.0), 1e-6);
}

/// The rule in double precision, with the library's table of the amplitude gain.
struct SlowRule {
  std::vector<double> echo = std::vector<double>(bands), old = echo, zeta = echo, gain = echo;

  void frame(const Signal &ps, const Signal &linear_echo, double leak, double exponent, const Signal &divisor,
             bool first) {
    std::vector<double> prior(bands), posterior(bands);
    double mean = 0;
    for (size_t b = 0; b < bands; ++b) {
      echo[b] = std::max((1 + std::min(1.0, 2 * leak)) * linear_echo[b], 0.6 * echo[b]);
      const double noise = echo[b] + 1, before = first ? ps[b] : old[b];
      posterior[b] = std::clamp(ps[b] / noise - 1, 1e-5, 100.0);
      const double update = 0.1 + 0.89 * before / (before + noise);
      prior[b] = std::min(update * posterior[b] + (1 - update) * before / noise, 100.0);
      old[b] = before;
      zeta[b] = 0.7 * zeta[b] + 0.3 * prior[b];
      mean += zeta[b] / bands;
    }
    const double in_frame = 0.1 + 0.899 * sigmoid(mean), floor_db = (1 - in_frame) * -40 + in_frame * -15;
    for (size_t b = 0; b < bands; ++b) {
      const double wiener = prior[b] / (prior[b] + 1), theta = wiener * (posterior[b] + 1);
      const double present = std::min(wiener * double(AEC_NlpHypergeomGainCal(float(theta))), 1.0);
      old[b] = 0.2 * old[b] + 0.8 * present * ps[b];
      const double absence = 1 - in_frame * (0.199 + 0.8 * sigmoid(zeta[b]));
      const double p = 1 / (1 + absence / (1 - absence) * (1 + prior[b]) * std::exp(-theta));
      const double floor = std::sqrt(std::pow(10, floor_db / 10) * echo[b] / (1 + echo[b]));
      gain[b] = shaped(p * std::sqrt(std::max(present, floor)) + (1 - p) * std::sqrt(floor), exponent, divisor[b]);
    }
  }
};

TEST(EchoRatioGain, follows_its_formulas_at_any_exponent_and_divisor) {
  for (const float exponent : {1.f, 2.f, 3.f, 1.5f}) {
    const std::array<float, 8> factors = {1, 0.5f, 2, 8, 0, 3};
    Suppressor suppressor(all_layouts[1], false, true, exponent, factors);
    AecNlpSerState &ser = suppressor.st.stSer;
    Signal divisor;
    for (size_t b = 0; b < bands; ++b)
      divisor.push_back(factors[b / 4]);
    SlowRule slow;
    for (uint32_t frame = 0; frame < 60; ++frame) {
      Signal ps = noise_values(2 * frame, bands, 10.f), echo = noise_values(2 * frame + 1, bands, 7.f);
      for (size_t b = 0; b < bands; ++b) { // powers from 1e-3 to 1e4
        ps[b] = frame % 20 == 19 ? 0.f : std::exp(ps[b]);
        echo[b] = std::exp(echo[b]);
      }
      const float leak = std::array{0.f, 0.2f, 0.5f, 0.9f}[frame % 4];
      AEC_NlpSerCancel(ps.data(), echo.data(), bands, &ser, leak);
      slow.frame(ps, echo, leak, exponent, divisor, frame == 0);
      for (size_t b = 0; b < bands; ++b) {
        ASSERT_NEAR(ser.pfGain2[b], slow.gain[b], 2e-4) << "exponent " << exponent << ", frame " << frame;
        ASSERT_NEAR(ser.pfOldPs[b] / slow.old[b], 1, 1e-3) << "exponent " << exponent << ", frame " << frame;
      }
    }
  }
}

TEST(CoherenceGain, takes_the_lesser_coherence_unless_only_the_near_end_talks) {
  struct Case {
    const char *what;
    float error_coherence, incoherence, minimum;
    int32_t state;
    float exponent, divisor;
    int32_t state_after;
    float minimum_after, gain;
  };
  for (const Case &c : {Case{"near end only", 0.981f, 0.901f, 0.5f, 1, 1, 1, 0, 0.5f, 0.981f},
                        Case{"not sure of the error", 0.979f, 0.901f, 0.5f, 1, 1, 1, 1, 0.5f, 0.901f},
                        Case{"not sure of the far end", 0.981f, 0.899f, 0.5f, 1, 1, 1, 1, 0.5f, 0.899f},
                        Case{"in between, the state stays", 0.951f, 0.801f, 0.5f, 0, 1, 1, 0, 0.5f, 0.951f},
                        Case{"echo by the error", 0.949f, 0.95f, 0.5f, 0, 1, 1, 1, 0.5f, 0.949f},
                        Case{"echo by the far end", 0.99f, 0.799f, 0.5f, 0, 1, 1, 1, 0.5f, 0.799f},
                        Case{"never coherent before", 0.5f, 0.76f, 1, 1, 1, 1, 1, 1, 0.76f},
                        Case{"a new minimum", 0.5f, 0.74f, 1, 1, 1, 1, 1, 0.74f, 0.5f},
                        Case{"a lower minimum", 0.5f, 0.3f, 0.4f, 1, 1, 1, 1, 0.3f, 0.3f},
                        Case{"squared", 0.5f, 0.9f, 0.4f, 1, 2, 1, 1, 0.4f, 0.25f},
                        Case{"exponent 3, odds divided by 4", 0.5f, 0.9f, 0.4f, 1, 3, 4, 1, 0.4f, 0.125f / 3.625f},
                        Case{"odds times 2", 0.5f, 0.9f, 0.4f, 1, 1, 0.5f, 1, 0.4f, 0.5f / 0.75f},
                        Case{"not finite becomes 0", 0, 0.9f, 0.4f, 1, -2, 1, 1, 0.4f, 0}}) {
    const float d = c.divisor;
    Suppressor suppressor(all_layouts[0], true, false, c.exponent, {d, d, d, d, d, d});
    AecNlpCohState &coh = suppressor.st.stCoh;
    coh.fXdAvgMin = c.minimum;
    coh.swEchoState = c.state;
    Signal error(256, 1.f), power(bins, 1.f), beyond(error);
    Signal coherence(bins, c.error_coherence), incoherence(bins, c.incoherence);
    for (const size_t outside : {10, 72}) // the decisions look at bins 11 to 71 only
      coherence[outside] = incoherence[outside] = 0.f;
    AEC_NlpCohCancel(coherence.data(), incoherence.data(), beyond.data(), error.data(), power.data(), power.data(), 128,
                     256, &coh);
    EXPECT_EQ(coh.swEchoState, c.state_after) << c.what;
    EXPECT_NEAR(coh.fXdAvgMin, std::min(c.minimum_after + 0.0004f, 1.f), 1e-6) << c.what;
    for (const size_t bin : {0, 11, 71, 127}) // the bands end below Nyquist
      EXPECT_NEAR(coh.pfHnl[bin], c.gain, 2e-4) << c.what << ", bin " << bin;
  }
}

} // namespace
