// Signal-to-echo-ratio suppressor: the residual echo takes the place of the noise in a statistical
// speech estimator (Y. Ephraim and D. Malah, "Speech enhancement using a minimum mean-square error
// short-time spectral amplitude estimator", 1984), with a floor that depends on speech presence.

#include <algorithm>
#include <cmath>

#include "aec/gain_shape.h"
#include "dsp/counter.h"
#include "qvvoice/aec/nlp.h"
#include "qvvoice/dsp/math.h"
#include "qvvoice/dsp/vector.h"

namespace {

constexpr float ratio_max = 100.f; // 20 dB
constexpr float ratio_min = 0.00001f;
constexpr double echo_release = 0.6;      // per frame, of the residual echo estimate
constexpr float db_to_power = 0.2302585f; // ln 10 / 10

/// Gamma(1.5) * 1F1(-0.5; 1; -x) at x = 0, 0.5 .. 10: the amplitude estimator's numerator.
constexpr float hypergeometric[21] = {0.82157f, 1.02017f, 1.20461f, 1.37534f, 1.53363f, 1.68092f, 1.81865f,
                                      1.94811f, 2.07038f, 2.18638f, 2.29688f, 2.40255f, 2.50391f, 2.60144f,
                                      2.69551f, 2.78647f, 2.87458f, 2.96015f, 3.04333f, 3.12431f, 3.20326f};

/// Residual echo per band: the leaked part of the linear estimate, released slowly.
void estimate_residual_echo(const float *echo, int32_t bands, float leak, AecNlpSerState &ser) {
  const float factor = 1.f + (leak > 0.5f ? 1.f : 2.f * leak);
  for (int32_t b = 0; b < bands; ++b) {
    const float leaked = factor * echo[b];
    const double released = echo_release * double(ser.pfEchoNoise[b]);
    ser.pfEchoNoise[b] = released > double(leaked) ? float(released) : leaked;
  }
}

/// A-posteriori and decision-directed a-priori signal-to-echo ratio of a band.
void estimate_ratios(int32_t b, AecNlpSerState &ser) {
  const float noise = ser.pfEchoNoise[b] + 1.f;
  const float old = ser.pfOldPs[b];
  float posterior = ser.pfPs[b] / noise - 1.f;
  posterior = double(posterior) > 0.00001 ? std::min(posterior, ratio_max) : ratio_min;
  const float update = 0.1f + 0.89f * old / (old + noise);
  const float prior = std::min(update * posterior + (1.f - update) * old / noise, ratio_max);
  ser.pfPost[b] = posterior;
  ser.pfPrior[b] = prior;
  ser.pfZeta[b] = float(0.7 * double(ser.pfZeta[b]) + 0.3 * double(prior));
}

/// Amplitude gain of a band, and the probability that its content is wanted.
void estimate_gain(float frame_presence, int32_t b, AecNlpSerState &ser) {
  const float prior = ser.pfPrior[b];
  const float wiener = prior / (prior + 1.f);
  const float theta = wiener * (ser.pfPost[b] + 1.f);
  const float gain = std::min(wiener * AEC_NlpHypergeomGainCal(theta), 1.f);
  ser.pfGain[b] = gain;
  ser.pfOldPs[b] = 0.2f * ser.pfOldPs[b] + 0.8f * gain * ser.pfPs[b];
  const float band_presence = 0.199f + 0.8f * VOICE_Qcurve(ser.pfZeta[b]);
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

  const float frame_presence = 0.1f + 0.899f * VOICE_Qcurve(VOICE_VecSum(ser->pfZeta, count) / float(count));
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
  const float position = x + x;
  const float whole = std::floor(position);
  if (whole < 0.f)
    return 1.f;
  if (!(whole <= 19.f))
    return float(1.0 + 0.1296 / double(x));
  const auto j = int32_t(whole);
  const float share = position - whole;
  const float numerator = (1.f - share) * hypergeometric[j] + share * hypergeometric[j + 1];
  return float(double(numerator) / std::sqrt(double(x + 0.0001f)));
}
