// The noise tracker, step by step from the library's own state, against its formulas in double precision.

#include "qvvoice/anr/anr.h"
#include "support.h"

namespace {

using namespace qv::test;

constexpr size_t bands = 24;
using Values = std::vector<double>;

Values copied(const float *x) { return {x, x + bands}; }

/// One frame from a copy of the tracker.
struct SlowTracker {
  Values noise, average, smooth, selected, minimum, selected_minimum, posterior, prior, kept;

  SlowTracker(const AnrNoiseEst &est, const std::vector<float> &x)
      : average(copied(est.pfNoiseSmooth)), smooth(copied(est.pfSmoothT)), selected(copied(est.pfSmoothTSel)),
        minimum(copied(est.pfMin)), selected_minimum(copied(est.pfMinSel)), posterior(bands), prior(bands),
        kept(bands) {
    const auto inner = [](size_t k) { return k > 0 && k < bands - 1; };
    Values noise_only(bands), across(x.begin(), x.end());
    double mean = 0;
    for (size_t k = 0; k < bands; ++k) {
      const double s = inner(k) ? 0.5 * x[k] + 0.25 * x[k - 1] + 0.25 * x[k + 1] : double(x[k]);
      smooth[k] = 0.8 * smooth[k] + 0.2 * s;
      minimum[k] = std::min(minimum[k], smooth[k]);
      noise_only[k] = x[k] / (1.66 * minimum[k]) < 4.6 && smooth[k] / (1.66 * minimum[k]) < 1.67;
    }
    for (size_t k = 0; k < bands; ++k) {
      double sum = 0, weight = 0;
      for (size_t j = k - inner(k); j <= k + inner(k); ++j) {
        const double w = (j == k ? 0.5 : 0.25) * noise_only[inner(k) ? j : 0]; // the lowest band decides for both edges
        sum += w * x[j];
        weight += w;
      }
      selected[k] = 0.8 * selected[k] + 0.2 * (weight > 0 ? sum / weight : selected[k]);
    }
    for (size_t k = 0; k < bands; ++k) {
      posterior[k] = std::min(x[k] / double(est.pfNoise[k]), 40.0);
      prior[k] = std::max(0.92 * std::pow(double(est.pfGainPrev[k]), 2) * est.pfTrkPostSnr[k] +
                              0.08 * std::max(posterior[k] - 1, 0.0),
                          0.0316);
      selected_minimum[k] = std::min(selected_minimum[k], selected[k]);
      const double reference = 1.66 * selected_minimum[k], ratio = x[k] / reference;
      const double q = (3 - ratio) / 2, v = prior[k] * posterior[k] / (1 + prior[k]);
      const double p = 1 / (1 + q / (1 - q) * (1 + prior[k]) * std::exp(-v));
      kept[k] = smooth[k] / reference >= 1.67 || ratio >= 3 ? 1 : ratio <= 1 ? 0.85 : 0.85 + 0.15 * p;
      average[k] = kept[k] * average[k] + (1 - kept[k]) * x[k];
      mean += average[k] / bands;
    }
    for (const double a : average)
      noise.push_back(a < mean / 4 ? 3 * a : a);
  }
};

struct Tracked {
  AnrState state{};
  AnrNoiseEst &est = state.stNoiseEst;
  Tracked() {
    const AnrPara para{1, 8000, 160, bands, 0.75f, 2, 0.05f, 0.516f, 0.1f};
    ANR_Init(&para, &state);
  }
  ~Tracked() { ANR_Destroy(&state); }
};

TEST(NoiseTracker, every_step_is_that_of_the_formulas) {
  Tracked t;
  AnrNoiseEst &est = t.est;
  std::mt19937 random(3);
  std::exponential_distribution<float> level(1);
  int32_t kinds[3] = {}, lifted = 0;
  for (int32_t frame = 0; frame < 400; ++frame) {
    std::vector<float> x(bands);
    for (size_t k = 0; k < bands; ++k) // bands 5 and 6 far below the others, bursts in some
      x[k] =
          (0.5f + level(random) / 2) * (k == 5 || k == 6 ? 1.f : 100.f) * (frame / 7 % 5 == int32_t(k % 5) ? 3.f : 1.f);
    if (frame == 0) {
      ANR_First_Frm(x.data(), bands, &t.state);
      continue;
    }
    std::fill_n(est.pfGainPrev, bands, 0.1f + 0.3f * float(frame % 4));
    const SlowTracker expected(est, x);
    const bool closes = est.swSubWinFrame == 7;
    ANR_Noise_Est(x.data(), bands, &est);
    for (size_t k = 0; k < bands; ++k) {
      const auto near = [&](double found, double wanted, const char *what) {
        EXPECT_NEAR(found / wanted, 1, 1e-5) << what << ", frame " << frame << ", band " << k;
      };
      near(est.pfSmoothT[k], expected.smooth[k], "smoothed");
      near(est.pfSmoothTSel[k], expected.selected[k], "smoothed, noise only");
      near(est.pfTrkPostSnr[k], expected.posterior[k], "a-posteriori SNR");
      near(est.pfTrkPriorSnr[k], expected.prior[k], "a-priori SNR");
      near(est.pfNoiseSmooth[k], expected.average[k], "averaged noise");
      near(est.pfNoise[k], expected.noise[k], "noise");
      if (!closes)
        near(est.pfMinSel[k], expected.selected_minimum[k], "minimum");
      ++kinds[expected.kept[k] == 1 ? 0 : expected.kept[k] == 0.85 ? 1 : 2];
      lifted += expected.noise[k] > 2 * expected.average[k];
    }
    if (testing::Test::HasFailure())
      return;
  }
  EXPECT_GT(std::ranges::min(kinds), 100) << "each branch of the noise average";
  EXPECT_GT(lifted, 100);
}

// Two sub-windows of eight frames (the first counts the seeding one): a minimum goes when the second sub-window
// after its own closes, and not a frame before.
TEST(NoiseTracker, minimum_is_searched_over_two_sub_windows) {
  Tracked t;
  const auto feed = [&](float power, int32_t frames) {
    const std::vector<float> x(bands, power);
    for (int32_t i = 0; i < frames; ++i)
      ANR_Noise_Est(x.data(), bands, &t.est);
    return t.est.pfMin[12];
  };
  ANR_First_Frm(std::vector<float>(bands, 100.f).data(), bands, &t.state);
  EXPECT_EQ(feed(100, 7), 100.f);
  const float dip = feed(10, 1); // 0.8 * 100 + 0.2 * 10
  EXPECT_FLOAT_EQ(dip, 82);
  EXPECT_FLOAT_EQ(feed(1000, 7 + 8 + 7), dip); // its sub-window closes, the next one, and nearly the one after
  EXPECT_GT(feed(1000, 1), 4 * dip);
}

} // namespace
