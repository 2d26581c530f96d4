// Step size per bin from the echo leakage (J.-M. Valin, "On adjusting the learning rate in frequency domain
// echo cancellation with double-talk", 2007).

#include <algorithm>
#include <cmath>

#include "aec/mdf_stages.h"
#include "dsp/smoothing.h"
#include "qvvoice/dsp/spectrum.h"

namespace qv::aec {

namespace {

// Where no source is named, a value is this system's choice; the published output depends on each.

// Leakage and residual echo, as power ratios.
constexpr float leak_min = 0.005f;    // -23 dB: the filter is never taken for better than that
constexpr float leak_trained = 0.03f; // -15 dB: the estimate must be above that before the filter counts as trained
constexpr double far_leaked = 0.0001; // -40 dB of the far end count as residual echo whatever the estimate says
constexpr double leak_margin = 3.0;   // +5 dB: the residual echo is taken that far above the regression's estimate
constexpr float rer_max = 0.5f;       // residual-to-error ratio: half of the error is never taken for echo
constexpr float bin_share = 0.7f;     // of the step comes from the bin's own ratio,
constexpr float frame_share = 0.3f;   // the rest from the whole frame's

// Training: one rate for all bins.
constexpr float training_rate = 0.25f;             // share of the error that a frame takes back, at most
constexpr float training_power_per_point = 1000.f; // of the far end, pre-emphasised: -57 dB of full scale

// Powers per bin, 16-bit scale. They keep quotients of silence finite.
constexpr float far_power_floor = 10.f, power_floor = 1.f;

/// Weight of a frame in the far end's power, divided by the partitions: an echo tail of M frames is averaged over
/// about 3 M of them.
constexpr double far_power_weight = 0.35;

/// Residual echo over error energy, at most rer_max; at least what their correlation proves.
float residual_to_error(const Energies &frame, const AecMdfState &st) {
  const double leaked = far_leaked * double(frame.far) + leak_margin * double(st.fLeak) * double(frame.echo);
  const auto ratio = float(leaked / double(frame.background));
  const float proved = frame.correlation * frame.correlation / (power_floor + frame.background * frame.echo);
  return std::min(std::max(ratio, proved), rer_max);
}

/// Step per bin of a trained filter: the share of residual echo in the error, over the far-end power.
void set_trained_steps(float rer, AecMdfState &st) {
  for (int32_t k = 0; k <= st.swFrameLen; ++k) {
    const float error = st.pfErrPsd[k] + power_floor;
    const float residual = std::min(st.fLeak * st.pfEchoPsd[k], rer_max * error);
    st.pfStep[k] = (bin_share * residual + frame_share * rer * error) / ((st.pfFarPow[k] + far_power_floor) * error);
  }
}

/// Step of an untrained filter: one rate for all bins, while the far end is there.
void set_provisional_steps(const Energies &frame, AecMdfState &st) {
  float rate = 0;
  if (frame.far > training_power_per_point * float(st.swFftLen))
    rate = std::min(training_rate * frame.far, training_rate * frame.background) / frame.background;
  for (int32_t k = 0; k <= st.swFrameLen; ++k)
    st.pfStep[k] = rate / (st.pfFarPow[k] + far_power_floor);
  st.fSumAdapt += rate;
}

} // namespace

void follow_far_power(AecMdfState &st) {
  const auto weight = float(far_power_weight / st.swPartNum);
  VOICE_PowerSpectrumCcum(st.pfFarSpec, st.pfFarPsd, st.swFftLen);
  for (int32_t k = 0; k <= st.swFrameLen; ++k)
    st.pfFarPow[k] = (1.f - weight) * st.pfFarPow[k] + power_floor + weight * st.pfFarPsd[k];
}

// Regression of the error's power on the echo's, both about their means: how much echo leaks through.
void estimate_leakage(const Energies &frame, AecMdfState &st) {
  float correlation = power_floor, power = power_floor;
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
  if (st.fPyy < power_floor)
    st.fPyy = power_floor;
  if (st.fPey < leak_min * st.fPyy)
    st.fPey = leak_min * st.fPyy;
  if (st.fPey > st.fPyy)
    st.fPey = st.fPyy;
  st.fLeak = st.fPey / st.fPyy;
}

void set_steps(const Energies &frame, AecMdfState &st) {
  const bool enough_training = st.fSumAdapt > float(st.swPartNum) && st.fLeak * frame.echo > leak_trained * frame.echo;
  if (st.swAdapted == 0 && enough_training)
    st.swAdapted = 1;
  if (st.swAdapted == 1)
    set_trained_steps(residual_to_error(frame, st), st);
  else
    set_provisional_steps(frame, st);
}

} // namespace qv::aec
