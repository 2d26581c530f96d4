// Signal-to-echo-ratio suppressor: the residual echo takes the place of the noise in a statistical
// speech estimator (Y. Ephraim and D. Malah, "Speech enhancement using a minimum mean-square error
// short-time spectral amplitude estimator", 1984; of the amplitude's square root, as in C. H. You, S. N. Koh and
// S. Rahardja, "Beta-order MMSE spectral amplitude estimation for speech enhancement", 2005, with beta = 1/2), with a
// floor that depends on speech presence.

#include <algorithm>
#include <cmath>

#include "aec/gain_shape.h"
#include "dsp/counter.h"
#include "qvvoice/aec/nlp.h"
#include "qvvoice/dsp/math.h"
#include "qvvoice/dsp/vector.h"

namespace {

// Where no source is named, a value is this system's choice; the published output depends on each.

// Signal-to-echo ratios, linear power.
constexpr float ratio_max = 100.f;    // 20 dB
constexpr float ratio_min = 0.00001f; // -50 dB
constexpr float power_floor = 1.f;    // under the residual echo, 16-bit scale squared
// Decision-directed estimate (Ephraim and Malah): weight of this frame's own ratio, from 0.1 to 0.99 with the wanted
// signal's share of the frame before.
constexpr float own_weight_min = 0.1f, own_weight_range = 0.89f;
constexpr double zeta_keep = 0.7, zeta_weight = 0.3; // per frame: 3 frames to 1 / e
constexpr float old_keep = 0.2f, old_weight = 0.8f;  // the same of the wanted signal's power: less than one frame

// Speech presence by zeta: of a band and of the whole frame, never quite 0 and never quite 1.
constexpr float band_presence_min = 0.199f, band_presence_range = 0.8f;
constexpr float frame_presence_min = 0.1f, frame_presence_range = 0.899f;

constexpr float leak_full = 0.5f;         // leakage from which the whole echo estimate is added once more
constexpr double echo_release = 0.6;      // of the residual echo estimate per frame: 2 dB
constexpr float db_to_power = 0.2302585f; // ln 10 / 10

/// (Gamma(5/4) 1F1(-1/4; 1; -x))^2 at x = 0, 0.5 .. 10: the estimator's numerator; over sqrt(x) it is the gain.
constexpr float hypergeometric[21] = {0.82157f, 1.02017f, 1.20461f, 1.37534f, 1.53363f, 1.68092f, 1.81865f,
                                      1.94811f, 2.07038f, 2.18638f, 2.29688f, 2.40255f, 2.50391f, 2.60144f,
                                      2.69551f, 2.78647f, 2.87458f, 2.96015f, 3.04333f, 3.12431f, 3.20326f};

constexpr float table_steps = 2;      // per unit of x
constexpr double tail_slope = 0.1296; // beyond the table the gain is 1 + 0.1296 / x: it meets the last entry at x = 10

/// Residual echo per band: the leaked part of the linear estimate, released slowly.
void estimate_residual_echo(const float *echo, int32_t bands, float leak, AecNlpSerState &ser) {
  const float factor = 1.f + (leak > leak_full ? 1.f : leak / leak_full);
  for (int32_t b = 0; b < bands; ++b) {
    const float leaked = factor * echo[b];
    const double released = echo_release * double(ser.pfEchoNoise[b]);
    ser.pfEchoNoise[b] = released > double(leaked) ? float(released) : leaked;
  }
}

/// A-posteriori and decision-directed a-priori signal-to-echo ratio of a band.
void estimate_ratios(int32_t b, AecNlpSerState &ser) {
  const float noise = ser.pfEchoNoise[b] + power_floor;
  const float old = ser.pfOldPs[b];
  float posterior = ser.pfPs[b] / noise - 1.f;
  posterior = posterior > ratio_min ? std::min(posterior, ratio_max) : ratio_min;
  const float update = own_weight_min + own_weight_range * old / (old + noise);
  const float prior = std::min(update * posterior + (1.f - update) * old / noise, ratio_max);
  ser.pfPost[b] = posterior;
  ser.pfPrior[b] = prior;
  ser.pfZeta[b] = float(zeta_keep * double(ser.pfZeta[b]) + zeta_weight * double(prior));
}

/// Amplitude gain of a band, and the probability that its content is wanted.
void estimate_gain(float frame_presence, int32_t b, AecNlpSerState &ser) {
  const float prior = ser.pfPrior[b];
  const float wiener = prior / (prior + 1.f);
  const float theta = wiener * (ser.pfPost[b] + 1.f);
  const float gain = std::min(wiener * AEC_NlpHypergeomGainCal(theta), 1.f);
  ser.pfGain[b] = gain;
  ser.pfOldPs[b] = old_keep * ser.pfOldPs[b] + old_weight * gain * ser.pfPs[b];
  const float band_presence = band_presence_min + band_presence_range * VOICE_Qcurve(ser.pfZeta[b]);
  const float absence = 1.f - frame_presence * band_presence;
  const float odds = absence / (1.f - absence) * (1.f + prior);
  ser.pfGain2[b] = float(1.0 / (1.0 + double(odds) * std::exp(-double(theta))));
}

/// Mixes the gain with its floor by that probability, in the square-root domain.
void mix_with_floor(int32_t b, AecNlpSerState &ser) {
  const double floor = ser.pfGainFloor[b];
  ser.pfGain[b] = std::max(ser.pfGain[b], ser.pfGainFloor[b]);
  const double p = ser.pfGain2[b];
  ser.pfGain2[b] = float(p * std::sqrt(double(ser.pfGain[b])) + (1.0 - p) * std::sqrt(floor));
}

} // namespace

void AEC_NlpSerCancel(const float *ps, const float *echo, int32_t count, AecNlpSerState *ser, float leak) {
  qv::count_up(ser->swFrameCnt);
  estimate_residual_echo(echo, count, leak, *ser);
  std::copy_n(ps, count, ser->pfPs);
  if (ser->swFrameCnt == 1)
    std::copy_n(ps, count, ser->pfOldPs);
  for (int32_t b = 0; b < count; ++b)
    estimate_ratios(b, *ser);

  const float frame_presence =
      frame_presence_min + frame_presence_range * VOICE_Qcurve(VOICE_VecSum(ser->pfZeta, count) / float(count));
  const float floor_db = (1.f - frame_presence) * ser->fEchoSup + frame_presence * ser->fEchoSupActive;
  AEC_NlpGainFloorCal(ser->pfEchoNoise, ser->pfGainFloor, count, floor_db);

  for (int32_t b = 0; b < count; ++b)
    estimate_gain(frame_presence, b, *ser);
  for (int32_t b = 0; b < count; ++b)
    mix_with_floor(b, *ser);
  qv::aec::raise(ser->pfGain2, count, ser->fSupExp);
  qv::aec::divide_odds(ser->pfGain2, ser->pfBandSupFactor, count);
}

void AEC_NlpGainFloorCal(const float *noise, float *floor, int32_t count, float floorDb) {
  const auto ratio = float(std::exp(double(floorDb * db_to_power)));
  for (int32_t i = 0; i < count; ++i)
    floor[i] = float(std::sqrt(double(ratio * noise[i])) / std::sqrt(double(1.f + noise[i])));
}

float AEC_NlpHypergeomGainCal(float x) {
  const float position = table_steps * x;
  const float whole = std::floor(position);
  if (whole < 0.f)
    return 1.f;
  if (!(whole <= 19.f))
    return float(1.0 + tail_slope / double(x));
  const auto j = int32_t(whole);
  const float share = position - whole;
  const float numerator = (1.f - share) * hypergeometric[j] + share * hypergeometric[j + 1];
  return float(double(numerator) / std::sqrt(double(x + 0.0001f)));
}
