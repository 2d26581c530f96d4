// What the first frame leaves behind, and the smoothing across bands.

#include "reducer.h"

namespace {

using namespace qv::test;

TEST(AnrState, first_frame_seeds_levels_ratios_and_histories) {
  Reducer r({8000, 128, 4});
  r.seed({4, 8, 4, 0});
  for (float *level :
       {r.est.pfNoise, r.est.pfNoiseSmooth, r.est.pfSmoothF, r.est.pfSmoothFSel, r.est.pfMin, r.est.pfSmoothT,
        r.est.pfSmoothTSel, r.est.pfMinSel, r.est.pfSubMin, r.est.pfSubMinSel, r.enh.pfNoiseBand})
    EXPECT_TRUE(std::ranges::equal(r.band(level), std::vector<float>{4, 6, 4, 0}));
  for (float *ratio : {r.est.pfTrkPostSnr, r.est.pfTrkPriorSnr, r.est.pfGainPrev, r.enh.pfAvgSnr, r.enh.pfGainH1,
                       r.enh.pfPostSnr, r.enh.pfPriorSnr, r.enh.pfPriorSnrPrev, r.enh.pfGain})
    EXPECT_TRUE(r.all_are(1, ratio));
  for (float **history : {r.est.ppfMinHist, r.est.ppfMinHistSel})
    EXPECT_TRUE(r.all_are(6, history[0]) && r.all_are(6, history[1]));
  EXPECT_EQ(std::tuple(r.enh.fSnrPeak, r.enh.fSnrFrame, r.est.swSubWinFrame), std::tuple(0.f, 1000.f, 1));
}

// An impulse in an inner band shows the window and its norm; one near an edge which neighbours the edges leave out.
TEST(AnrSmoothing, impulses_show_window_norm_and_edges) {
  struct Case {
    int32_t half_width;
    float norm;
    std::vector<float> window; // from the centre outwards
  };
  for (const auto &[w, norm, window] :
       {Case{1, 1.224745f, {1, 0.5f}}, Case{3, 1.712360f, {1, 0.828701f, 0.5f, 0.171299f}},
        Case{4, 1.912031f, {1, 0.879426f, 0.641427f, 0.358573f, 0.120574f}}}) {
    for (const int32_t source : {0, 1, 2, 12, 23}) {
      float impulse[24] = {}, y[24];
      impulse[source] = 1;
      ANR_Smoothing(24, w, impulse, y);
      for (int32_t i = 0; i < 24; ++i) {
        const int32_t above = source - i; // distance of the source from the band that looks at it
        const bool kept = std::abs(above) <= w && (above <= 0 || above >= w - i);
        EXPECT_NEAR(y[i], kept ? window[size_t(std::abs(above))] / norm : 0, 1e-6)
            << "half width " << w << ", from " << source << " to " << i;
      }
    }
  }
}

} // namespace
