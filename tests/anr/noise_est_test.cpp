// The noise tracker: which bands it takes for noise, how fast it follows them, and how long its minima live.

#include "reducer.h"

namespace {

using namespace qv::test;

constexpr Layout layout = all_layouts[1];
constexpr size_t bands = 24, inner = 12;

using Bands = std::vector<float>;

Bands flat(float level) { return Bands(bands, level); }

Bands with(Bands x, size_t band, float level) {
  x[band] = level;
  return x;
}

// A band that jumps is left out of its neighbours' selected energy, takes theirs as its own, and keeps its noise; with
// both neighbours jumping too it falls back on its past.
TEST(NoiseTracker, jumping_bands_keep_their_noise_and_leave_the_others_alone) {
  Reducer r(layout);
  r.seed(flat(100));
  for (int frame = 0; frame < 20; ++frame)
    r.track(flat(100));
  r.track(with(flat(100), 9, 1000));
  EXPECT_FLOAT_EQ(r.est.pfSmoothF[8], 325);
  for (size_t k = 0; k < bands; ++k)
    for (float *array : {r.est.pfSmoothFSel, r.est.pfSmoothTSel, r.est.pfMin, r.est.pfMinSel, r.est.pfNoise})
      EXPECT_NEAR(array[k], 100, 1e-3) << k;
  r.est.pfSmoothTSel[9] = 77;
  r.track(with(with(with(flat(100), 8, 3000), 9, 5000), 10, 3000));
  EXPECT_FLOAT_EQ(r.est.pfSmoothFSel[9], 77);
  EXPECT_NEAR(r.est.pfSmoothFSel[8], 100, 1e-3) << "band 7 is noise only";
  EXPECT_EQ(r.est.pfTrkPostSnr[9], 40.f) << "the ceiling";
}

// The lowest band's indicator decides for both edges, whatever the highest band's is.
TEST(NoiseTracker, the_lowest_band_decides_for_both_edges) {
  for (const size_t loud : {size_t(0), bands - 1}) {
    Reducer r(layout);
    r.seed(flat(100));
    r.est.pfSmoothTSel[0] = 50;
    r.est.pfSmoothTSel[bands - 1] = 60;
    const Bands x = with(flat(100), loud, 1000);
    r.track(x);
    EXPECT_EQ(r.est.pfSmoothFSel[0], loud == 0 ? 50 : x[0]);
    EXPECT_EQ(r.est.pfSmoothFSel[bands - 1], loud == 0 ? 60 : x[bands - 1]);
  }
}

// A loud band in the first frame, 500 when smoothed, fills the histories; noise at 100, from frame 9 on at 200, then
// renews them slot by slot.
TEST(NoiseTracker, sub_windows_close_on_frames_8_16_and_24) {
  Reducer r(layout);
  r.seed(with(flat(100), 5, 900));
  r.est.ppfMinHistSel[1][inner] = 40; // to tell the two histories apart
  std::vector<float> at_close[3]; // of the inner band: slots, minima, and how far the running one is below the energy
  for (int frame = 2; frame <= 24; ++frame) {
    r.track(flat(frame <= 8 ? 100.f : 200.f));
    EXPECT_EQ(std::pair(r.est.swSubWinFrame, r.est.swSubWinIdx), std::pair(frame % 8, frame / 8 % 2)) << frame;
    if (frame % 8 == 0)
      at_close[frame / 8 - 1] = {r.est.ppfMinHist[0][inner], r.est.ppfMinHist[1][inner],
                                 r.est.pfMin[inner],         r.est.ppfMinHistSel[0][inner],
                                 r.est.pfMinSel[inner],      r.est.pfSmoothT[inner] - r.est.pfSubMin[inner]};
  }
  const float at_16 = 200 - 100 * std::pow(0.8f, 8.f); // where the energy stood when the third sub-window began
  const std::vector<float> expected[3] = {
      {100, 500, 100, 100, 40, 0}, {100, 100, 100, 100, 100, 0}, {at_16, 100, 100, at_16, 100, 0}};
  for (size_t close = 0; close < 3; ++close)
    EXPECT_LT(relative_error(expected[close], at_close[close]), 1e-6) << close;
}

// One band's energy and smoothed energy over the biased minimum, at each side of the bounds. Between them the share of
// the old average is 0.85 + 0.15 p; with the a-posteriori SNR at 2 and the a-priori SNR at 1, v = 1 and
// p = 1 / (1 + q / (1 - q) * 2 / e) for an absence q.
TEST(NoiseTracker, speech_presence_sets_the_share_of_the_old_average) {
  struct Case {
    const char *what;
    float energy_ratio, smooth_ratio, keep;
  };
  for (const auto &[what, energy_ratio, smooth_ratio, keep] :
       {Case{"no speech", 0.99f, 1.f, 0.85f}, Case{"smoothed energy above its bound", 0.99f, 1.671f, 1.f},
        Case{"smoothed energy below its bound", 0.99f, 1.669f, 0.85f},
        Case{"hardly uncertain", 1.01f, 1.f, 0.85f + 0.15f * 0.006784f},
        Case{"uncertain", 2.f, 1.f, 0.85f + 0.15f * 0.576117f},
        Case{"nearly certain", 2.9f, 1.f, 0.85f + 0.15f * 0.962720f}, Case{"certain", 3.01f, 1.f, 1.f}}) {
    Reducer r(layout);
    r.seed(flat(100));
    const float minimum = 10, reference = 1.66f * minimum, x = energy_ratio * reference;
    r.est.pfMinSel[inner] = minimum;
    r.est.pfNoise[inner] = x / 2;
    r.est.pfSmoothT[inner] = (smooth_ratio * reference - 0.2f * x) / 0.8f;
    r.track(flat(x));
    EXPECT_NEAR(r.est.pfTrkPriorSnr[inner], 1, 1e-6) << what;
    EXPECT_NEAR(r.est.pfNoiseSmooth[inner], keep * 100 + (1 - keep) * x, 2e-4) << what;
  }
}

// Silent bands with a silent past have no ratios: their average stays, and only the lift of the weakest is applied.
TEST(NoiseTracker, bands_below_a_quarter_of_the_mean_report_three_times_their_noise) {
  for (const auto &[average, noise] : {std::pair(1.f, 1.f), {0.5f, 1.5f}}) {
    Reducer r(layout);
    r.seed(flat(0));
    std::ranges::fill(r.band(r.est.pfNoiseSmooth), 4.f); // stays the mean
    r.est.pfNoiseSmooth[5] = average;
    r.est.pfNoiseSmooth[6] = 8 - average;
    r.track(flat(0));
    EXPECT_EQ(std::pair(r.est.pfNoise[5], r.est.pfNoise[6]), std::pair(noise, 8 - average));
    EXPECT_EQ(r.est.pfTrkPostSnr[5], 40.f);
  }
}

// Digital silence after noise: everything decays, and comes to rest above zero, where the ratios stay defined.
TEST(NoiseTracker, averages_decay_in_silence_and_never_reach_zero) {
  Reducer r(layout);
  r.seed(flat(1000));
  for (int frame = 1; frame <= 10; ++frame) {
    r.track(flat(0));
    EXPECT_NEAR(r.est.pfSmoothT[7], 1000 * std::pow(0.8, frame), 1e-3);
    EXPECT_EQ(r.est.pfMin[7], r.est.pfSmoothT[7]);
    EXPECT_NEAR(r.est.pfNoiseSmooth[7], 1000 * std::pow(0.85, frame), 1e-3);
  }
  for (int frame = 0; frame < 2000; ++frame)
    r.track(flat(0));
  for (float *level : {r.est.pfMin, r.est.pfMinSel, r.est.pfNoise})
    EXPECT_GT(std::ranges::min(r.band(level)), 0);
  EXPECT_TRUE(r.all_are(0, r.est.pfTrkPostSnr));
}

} // namespace
