// Step size per bin from the echo leakage (J.-M. Valin, "On adjusting the learning rate in frequency domain
// echo cancellation with double-talk", 2007).

#include <algorithm>
#include <cmath>

#include "aec/mdf_stages.h"
#include "dsp/smoothing.h"
#include "qvvoice/dsp/spectrum.h"

namespace qv::aec {

namespace {

constexpr float leak_min = 0.005f;
constexpr float rer_max = 0.5f; // residual-to-error ratio

/// Residual echo over error energy, at most 0.5; at least what their correlation proves.
float residual_to_error(const Energies &frame, const AecMdfState &st) {
  const double leaked = 0.0001 * double(frame.far) + 3.0 * double(st.fLeak) * double(frame.echo);
  const auto ratio = float(leaked / double(frame.background));
  const float proved = frame.correlation * frame.correlation / (1.f + frame.background * frame.echo);
  return std::min(std::max(ratio, proved), rer_max);
}

/// Step per bin of a trained filter: the share of residual echo in the error, over the far-end power.
void set_trained_steps(float rer, AecMdfState &st) {
  for (int32_t k = 0; k <= st.swFrameLen; ++k) {
    const float error = st.pfErrPsd[k] + 1.f;
    const float residual = std::min(st.fLeak * st.pfEchoPsd[k], 0.5f * error);
    st.pfStep[k] = (0.7f * residual + 0.3f * rer * error) / ((st.pfFarPow[k] + 10.f) * error);
  }
}

/// Step of an untrained filter: one rate for all bins, while the far end is there.
void set_provisional_steps(const Energies &frame, AecMdfState &st) {
  float rate = 0;
  if (frame.far > 1000.f * float(st.swFftLen))
    rate = std::min(0.25f * frame.far, 0.25f * frame.background) / frame.background;
  for (int32_t k = 0; k <= st.swFrameLen; ++k)
    st.pfStep[k] = rate / (st.pfFarPow[k] + 10.f);
  st.fSumAdapt += rate;
}

} // namespace

void follow_far_power(AecMdfState &st) {
  const auto weight = float(0.35 / st.swPartNum);
  VOICE_PowerSpectrumCcum(st.pfFarSpec, st.pfFarPsd, st.swFftLen);
  for (int32_t k = 0; k <= st.swFrameLen; ++k)
    st.pfFarPow[k] = (1.f - weight) * st.pfFarPow[k] + 1.f + weight * st.pfFarPsd[k];
}

// Regression of the error's power on the echo's, both about their means: how much echo leaks through.
void estimate_leakage(const Energies &frame, AecMdfState &st) {
  float correlation = 1.f, power = 1.f;
  for (int32_t k = st.swFrameLen; k >= 0; --k) {
    const float error = st.pfErrPsd[k] - st.pfErrPsdAvg[k];
    const float echo = st.pfEchoPsd[k] - st.pfEchoPsdAvg[k];
    correlation += error * echo;
    power += echo * echo;
  }
  for (int32_t k = 0; k <= st.swFrameLen; ++k) {
    st.pfErrPsdAvg[k] = recursive_average(st.pfErrPsdAvg[k], 1.f - st.fSpecAvg, st.pfErrPsd[k], st.fSpecAvg);
    st.pfEchoPsdAvg[k] = recursive_average(st.pfEchoPsdAvg[k], 1.f - st.fSpecAvg, st.pfEchoPsd[k], st.fSpecAvg);
  }
  power = std::sqrt(power);
  correlation /= power;

  const float rate = std::min(st.fBeta0 * frame.echo, st.fBetaMax * frame.background) / frame.background;
  st.fPey = recursive_average(st.fPey, 1.f - rate, correlation, rate);
  st.fPyy = recursive_average(st.fPyy, 1.f - rate, power, rate);
  if (st.fPyy < 1.f)
    st.fPyy = 1.f;
  if (st.fPey < leak_min * st.fPyy)
    st.fPey = leak_min * st.fPyy;
  if (st.fPey > st.fPyy)
    st.fPey = st.fPyy;
  st.fLeak = st.fPey / st.fPyy;
}

void set_steps(const Energies &frame, AecMdfState &st) {
  const bool enough_training = st.fSumAdapt > float(st.swPartNum) && st.fLeak * frame.echo > 0.03f * frame.echo;
  if (st.swAdapted == 0 && enough_training)
    st.swAdapted = 1;
  if (st.swAdapted == 1)
    set_trained_steps(residual_to_error(frame, st), st);
  else
    set_provisional_steps(frame, st);
}

} // namespace qv::aec
