// Noise tracker: improved minima-controlled recursive averaging (I. Cohen, "Noise spectrum estimation
// in adverse environments", 2003). A rough minimum search finds the bands without speech; a second
// search over those bands alone gives the statistic that sets how fast the noise average may follow.
//
// Ratios of zero to zero (digital silence) are undefined; every test on one is false.

#include <algorithm>
#include <cmath>

#include "anr/snr.h"
#include "dsp/fma.h"
#include "dsp/smoothing.h"
#include "qvvoice/anr/anr.h"
#include "qvvoice/dsp/filter_bank.h"

namespace {

using namespace qv::anr;

constexpr double time_keep = 0.8;     // time smoothing of the band energies
constexpr double min_bias = 1.66;     // the minimum of a smoothed power lies this much below its mean
constexpr double energy_bound = 4.6;  // of the instantaneous energy over the biased minimum
constexpr double smooth_bound = 1.67; // of the smoothed energy over the biased minimum
constexpr float uncertain_to = 3.f;   // from here on a band surely holds speech
constexpr double noise_keep = 0.85;   // of the noise average without speech
constexpr int32_t sub_window_len = 8; // frames
constexpr float floor_lift = 3.f;     // for a band whose noise is below a quarter of the mean

float biased(float minimum) { return float(min_bias * double(minimum)); }

/// Folds this frame's smoothed energy into a running minimum and that of the current sub-window.
void lower_minima(float energy, float &minimum, float &sub_minimum) {
  minimum = std::min(minimum, energy);
  sub_minimum = std::min(sub_minimum, energy);
}

/// First iteration: rough minima, and 1 in every band that holds noise only, else 0.
void find_noise_only_bands(const float *x, int32_t bands, AnrNoiseEst &est, float *noise_only) {
  qv::smooth_across_bands(x, est.pfSmoothF, bands, 0.5, 0.25);
  for (int32_t k = 0; k < bands; ++k) {
    est.pfSmoothT[k] = qv::recursive_average_fused(est.pfSmoothT[k], time_keep, est.pfSmoothF[k]);
    lower_minima(est.pfSmoothT[k], est.pfMin[k], est.pfSubMin[k]);
    const float reference = biased(est.pfMin[k]);
    const bool low =
        double(energy_ratio(x[k], reference)) < energy_bound && double(est.pfSmoothT[k] / reference) < smooth_bound;
    noise_only[k] = low ? 1.f : 0.f;
  }
}

/// Second iteration, across bands: the mean of the noise-only neighbours; without any, the band's own
/// past. The lowest band decides for both edges.
void smooth_noise_only(const float *x, const float *noise_only, int32_t bands, AnrNoiseEst &est) {
  float *smooth = est.pfSmoothFSel;
  for (int32_t k = 1; k < bands - 1; ++k) {
    const float below = noise_only[k - 1], here = noise_only[k], above = noise_only[k + 1];
    if (below + here + above == 0) {
      smooth[k] = est.pfSmoothTSel[k];
      continue;
    }
    const auto sum =
        float(0.5 * double(here) * x[k] + 0.25 * double(below) * x[k - 1] + 0.25 * double(above) * x[k + 1]);
    const auto weight = float(0.5 * double(here) + 0.25 * double(below) + 0.25 * double(above));
    smooth[k] = sum / weight;
  }
  const float *edges = noise_only[0] != 0 ? x : est.pfSmoothTSel;
  smooth[0] = edges[0];
  smooth[bands - 1] = edges[bands - 1];
}

/// Second iteration, over time.
void track_selected_minima(int32_t bands, AnrNoiseEst &est) {
  for (int32_t k = 0; k < bands; ++k) {
    est.pfSmoothTSel[k] = qv::recursive_average_fused(est.pfSmoothTSel[k], time_keep, est.pfSmoothFSel[k]);
    lower_minima(est.pfSmoothTSel[k], est.pfMinSel[k], est.pfSubMinSel[k]);
  }
}

void estimate_snrs(const float *x, int32_t bands, AnrNoiseEst &est) {
  for (int32_t k = 0; k < bands; ++k) {
    const float posterior_prev = est.pfTrkPostSnr[k];
    const float posterior = posterior_snr(x[k], est.pfNoise[k]);
    const float prior = decision_directed(est.pfGainPrev[k], posterior_prev, excess(posterior));
    est.pfTrkPostSnr[k] = posterior;
    est.pfTrkPriorSnr[k] = double(prior) < prior_snr_min ? float(prior_snr_min) : prior;
  }
}

/// Probability of speech in a band whose energy lies between the two bounds.
float presence(float ratio, float posterior, float prior) {
  const auto absence = float((double(uncertain_to) - double(ratio)) * 0.5);
  const float v = prior * posterior / (prior + 1.f);
  const auto likelihood = float(std::exp(-double(v)));
  return 1.f / qv::fma(absence / (1.f - absence) * (prior + 1.f), likelihood, 1.f);
}

/// How much of the old noise average a band keeps: 0.85 without speech, 1 with.
float noise_keeping(float x, int32_t k, const AnrNoiseEst &est) {
  const float reference = biased(est.pfMinSel[k]);
  const float ratio = energy_ratio(x, reference);
  const float smooth_ratio = est.pfSmoothT[k] / reference;
  if (!(double(smooth_ratio) < smooth_bound))
    return 1.f;
  if (ratio <= 1.f)
    return float(noise_keep);
  if (!(ratio < uncertain_to))
    return 1.f;
  const float p = presence(ratio, est.pfTrkPostSnr[k], est.pfTrkPriorSnr[k]);
  return float(qv::fma(1.0 - noise_keep, double(p), noise_keep));
}

/// Averages the noise as far as speech presence allows; lifts bands that lie far below the mean.
void average_noise(const float *x, int32_t bands, AnrNoiseEst &est) {
  float sum = 0;
  for (int32_t k = 0; k < bands; ++k) {
    const float keep = noise_keeping(x[k], k, est);
    est.pfNoiseSmooth[k] = qv::fma(est.pfNoiseSmooth[k], keep, (1.f - keep) * x[k]);
    sum += est.pfNoiseSmooth[k];
  }
  const auto quarter_of_mean = float(0.25 * double(sum) / bands);
  for (int32_t k = 0; k < bands; ++k) {
    const float noise = est.pfNoiseSmooth[k];
    est.pfNoise[k] = noise < quarter_of_mean ? floor_lift * noise : noise;
  }
}

/// The least of the stored sub-window minima.
void search_window(float *const *history, int32_t sub_windows, int32_t bands, float *minimum) {
  std::copy_n(history[0], bands, minimum);
  for (int32_t u = 1; u < sub_windows; ++u)
    for (int32_t k = 0; k < bands; ++k)
      if (history[u][k] < minimum[k])
        minimum[k] = history[u][k];
}

void close_sub_window(int32_t bands, AnrNoiseEst &est) {
  std::copy_n(est.pfSubMin, bands, est.ppfMinHist[est.swSubWinIdx]);
  std::copy_n(est.pfSubMinSel, bands, est.ppfMinHistSel[est.swSubWinIdx]);
  est.swSubWinIdx = est.swSubWinIdx + 1 == est.swSubWinNum ? 0 : est.swSubWinIdx + 1;
  search_window(est.ppfMinHist, est.swSubWinNum, bands, est.pfMin);
  search_window(est.ppfMinHistSel, est.swSubWinNum, bands, est.pfMinSel);
  std::copy_n(est.pfSmoothT, bands, est.pfSubMin);
  std::copy_n(est.pfSmoothTSel, bands, est.pfSubMinSel);
  est.swSubWinFrame = 0;
}

} // namespace

void ANR_Noise_Est(const float *bandPow, int32_t bandNum, AnrNoiseEst *est) {
  float noise_only[QV_MAX_BANDS] = {};
  find_noise_only_bands(bandPow, bandNum, *est, noise_only);
  smooth_noise_only(bandPow, noise_only, bandNum, *est);
  estimate_snrs(bandPow, bandNum, *est);
  track_selected_minima(bandNum, *est);
  average_noise(bandPow, bandNum, *est);
  if (++est->swSubWinFrame == sub_window_len)
    close_sub_window(bandNum, *est);
}
