// Gain rule: optimally-modified log-spectral amplitude (I. Cohen and B. Berdugo, "Speech enhancement
// for non-stationary noise environments", 2001). The gain if speech is present is that of Ephraim and
// Malah (1985); the probability of presence comes from the a-priori SNR averaged over the band's
// neighbourhood, over a wide stretch of bands, and over the whole frame.

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "anr/snr.h"
#include "dsp/fma.h"
#include "dsp/smoothing.h"
#include "qvvoice/anr/anr.h"
#include "qvvoice/dsp/filter_bank.h"

namespace {

using namespace qv::anr;

constexpr double snr_keep = 0.7;                 // recursive average of the a-priori SNR
constexpr float peak_min = 1.f, peak_max = 10.f; // bounds of the remembered peak
constexpr double absence_max = 0.95;             // from here on speech counts as absent
constexpr int32_t max_half_width = QV_MAX_BANDS;
constexpr float integral_end = 14.f; // beyond, exp(E1 / 2) is within half a float's last place of 1

/// Bartlett-Hann window of 2w + 1 points without its zero ends, and the root of its energy.
struct SmoothingWindow {
  float tap[2 * max_half_width + 1];
  float norm;
};

SmoothingWindow smoothing_window(int32_t w) {
  SmoothingWindow window{};
  const int32_t length = 2 * w + 1;
  for (int32_t i = 0; i < length; ++i) {
    const double t = float(i + 1) / float(length + 1) - 0.5f;
    const auto tap = float(0.62 - 0.48 * std::fabs(t) + 0.38 * std::cos(2.0 * std::numbers::pi * t));
    window.tap[i] = tap;
    window.norm = float(double(window.norm) + double(tap) * double(tap)); // the product is exact
  }
  window.norm = std::sqrt(window.norm);
  return window;
}

/// Of half width 1 and up: every frame needs the same two.
const auto smoothing_windows = [] {
  std::array<SmoothingWindow, max_half_width> windows;
  for (int32_t w = 1; w <= max_half_width; ++w)
    windows[size_t(w - 1)] = smoothing_window(w);
  return windows;
}();

/// Approximation of the exponential integral E1(v), v > 0.
float exponential_integral(float v) {
  const double x = v;
  if (v > integral_end)
    return 0.f;
  if (x < 0.1)
    return float(-2.3 * std::log10(x) - 0.6);
  if (x > 1.0)
    return float(std::pow(10.0, -(0.52 * x + 0.26)));
  return float(-1.544 * std::log10(x) + 0.166);
}

/// SNRs of one band, its gain if speech is present, and the averaged a-priori SNR.
/// @return v = prior * posterior / (1 + prior)
float estimate_band(float x, int32_t k, AnrEnhance &enh) {
  const float posterior_prev = enh.pfPostSnr[k];
  float posterior = posterior_snr(x, enh.pfNoiseBand[k]);
  if (!(double(posterior) > prior_snr_min))
    posterior = float(prior_snr_min);
  enh.pfPostSnr[k] = posterior;

  float prior = decision_directed(enh.pfGainH1[k], posterior_prev, excess(posterior));
  if (double(prior) < prior_snr_min)
    prior = float(prior_snr_min);
  const float wiener = prior / (prior + 1.f);
  const float v = wiener * posterior;
  enh.pfGainH1[k] = float(double(wiener) * std::exp(double(exponential_integral(v) * 0.5f)));

  enh.pfAvgSnr[k] = qv::recursive_average_fused(enh.pfAvgSnr[k], snr_keep, enh.pfPriorSnrPrev[k]);
  enh.pfPriorSnr[k] = enh.pfPriorSnrPrev[k] = prior;
  return v;
}

/// Where an averaged SNR lies between two bounds on a logarithmic scale, 0..1.
float log_position(float ratio_to_lower_bound, float log_range) {
  return float(std::log10(double(ratio_to_lower_bound)) / double(log_range));
}

float band_presence(float avg_snr, const AnrEnhance &enh, float log_range) {
  if (avg_snr >= enh.fAvgSnrMax)
    return 1.f;
  if (!(avg_snr > enh.fAvgSnrMin))
    return 0.f;
  return log_position(avg_snr / enh.fAvgSnrMin, log_range);
}

/// Presence in the whole frame: certain while the average rises, then measured from its last peak.
float frame_presence(float frame_snr_prev, AnrEnhance &enh, float log_range) {
  const float frame_snr = enh.fSnrFrame;
  if (!(frame_snr > enh.fAvgSnrMin))
    return 0.f;
  if (frame_snr_prev < frame_snr) {
    enh.fSnrPeak = std::clamp(frame_snr, peak_min, peak_max);
    return 1.f;
  }
  if (!(frame_snr > enh.fSnrPeak * enh.fAvgSnrMin))
    return 0.f;
  if (frame_snr >= enh.fSnrPeak * enh.fAvgSnrMax)
    return 1.f;
  return log_position(frame_snr / enh.fSnrPeak / enh.fAvgSnrMin, log_range);
}

float speech_probability(float absence, float prior, float v) {
  if (absence == 0 || double(absence) > absence_max)
    return absence == 0 ? 1.f : 0.f;
  const float weight = (1.f + prior) * absence;
  const double presence = 1.f - absence;
  return float(presence / qv::fma(double(weight), std::exp(-double(v)), presence));
}

/// Geometric mix of the speech-present gain and the floor.
float mixed_gain(float gain_min, float gain_present, float probability) {
  if (probability == 0.f || probability == 1.f) // pow(x, 0) = 1 and pow(x, 1) = x exactly
    return probability == 0.f ? gain_min : gain_present;
  const auto floor_part = float(std::pow(double(gain_min), double(1.f - probability)));
  return float(double(floor_part) * std::pow(double(gain_present), double(probability)));
}

} // namespace

void ANR_Smoothing(int32_t bandNum, int32_t halfWidth, const float *src, float *dst) {
  const int32_t w = std::clamp(halfWidth, 1, max_half_width);
  const SmoothingWindow &window = smoothing_windows[size_t(w - 1)];
  constexpr int32_t lanes = QV_MAX_BANDS;
  // Tap by tap over many bands: each band's sum still takes its taps in turn, and bands run side by side.
  for (int32_t begin = 0; begin < bandNum; begin += lanes) {
    const int32_t end = std::min(begin + lanes, bandNum);
    float at_or_below[lanes] = {}, above[lanes] = {};
    for (int32_t j = 0; j <= w; ++j)
      for (int32_t i = std::max(begin, j); i < end; ++i)
        at_or_below[i - begin] = qv::fma(window.tap[w - j], src[i - j], at_or_below[i - begin]);
    // The low edge has fewer upper neighbours: band i takes those at distances w - i .. w only.
    for (int32_t j = 0; j < w; ++j)
      for (int32_t i = std::max(begin, j); i < std::min(end, bandNum - (w - j)); ++i)
        above[i - begin] = qv::fma(window.tap[2 * w - j], src[i + w - j], above[i - begin]);
    for (int32_t i = begin; i < end; ++i)
      dst[i] = (at_or_below[i - begin] + above[i - begin]) / window.norm;
  }
}

void ANR_Enhance(const float *bandPow, int32_t bandNum, AnrEnhance *enh) {
  float v[QV_MAX_BANDS], local[QV_MAX_BANDS], global[QV_MAX_BANDS];
  const float frame_snr_prev = enh->fSnrFrame;
  enh->fSnrFrame = 0;
  for (int32_t k = 0; k < bandNum; ++k) {
    v[k] = estimate_band(bandPow[k], k, *enh);
    enh->fSnrFrame += enh->pfAvgSnr[k];
  }
  enh->fSnrFrame /= float(bandNum);

  ANR_Smoothing(bandNum, 1, enh->pfAvgSnr, local);
  ANR_Smoothing(bandNum, bandNum / 10 + 1, enh->pfAvgSnr, global);
  const auto log_range = float(std::log10(double(enh->fAvgSnrMax / enh->fAvgSnrMin)));
  const float in_frame = frame_presence(frame_snr_prev, *enh, log_range);
  for (int32_t k = 0; k < bandNum; ++k) {
    const float in_band = band_presence(local[k], *enh, log_range) * band_presence(global[k], *enh, log_range);
    const float absence = qv::fma(-in_frame, in_band, 1.f);
    const float p = speech_probability(absence, enh->pfPriorSnr[k], v[k]);
    enh->pfGain[k] = mixed_gain(enh->fGainMin, enh->pfGainH1[k], p);
  }
}
