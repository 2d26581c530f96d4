/// @file snr.h  Signal-to-noise ratios that the noise tracker and the gain rule both form.
#pragma once

#include "dsp/fma.h"

namespace qv::anr {

constexpr float posterior_snr_max = 40.f; ///< 16 dB
constexpr double prior_snr_min = 0.0316;  ///< -15 dB
constexpr double prior_keep = 0.92;       ///< share of the previous frame in the a-priori SNR

/// energy / reference, undefined for 0 / 0. In digital silence the reference comes to rest at a denormal, by
/// which a division takes many times its time: a silent band does without.
inline float energy_ratio(float energy, float reference) {
  return energy == 0 && reference > 0 ? 0.f : energy / reference;
}

/// Undefined counts as the most.
inline float posterior_snr(float energy, float noise) {
  const float ratio = energy_ratio(energy, noise);
  return ratio < posterior_snr_max ? ratio : posterior_snr_max;
}

/// What a frame adds to the a-priori SNR: the weighted excess of the a-posteriori SNR over 1.
inline float excess(float posterior_snr) {
  const float over = posterior_snr - 1.f;
  return over > 0 ? float((1.0 - prior_keep) * double(over)) : 0.f;
}

/// Decision-directed a-priori SNR (Ephraim and Malah 1984): the previous frame's clean-speech
/// estimate, plus this frame's excess.
inline float decision_directed(float gain_prev, float posterior_prev, float excess) {
  const double gain = gain_prev;
  return float(fma(prior_keep * (gain * gain), double(posterior_prev), double(excess)));
}

} // namespace qv::anr
