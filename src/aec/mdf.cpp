// Two-path adaptive echo filter: a multidelay block frequency-domain filter (J.-S. Soo and K. K. Pang,
// "Multidelay block frequency domain adaptive filter", 1990) that adapts in the background, and a
// foreground copy that makes the output (K. Ochiai, T. Araseki and S. Ogihara, "Echo canceler with two
// echo path models", 1977). The step size per bin follows the echo leakage (J.-M. Valin, "On adjusting
// the learning rate in frequency domain echo cancellation with double-talk", 2007).
//
// Overlap-save with blocks of N in transforms of F = 2N points: the second half of an inverse
// transform holds the N valid samples.

#include "qvvoice/aec/mdf.h"

#include <algorithm>
#include <cmath>

#include "aec/frame_report.h"
#include "dsp/arrays.h"
#include "dsp/bins.h"
#include "dsp/counter.h"
#include "dsp/sample.h"
#include "dsp/smoothing.h"
#include "qvvoice/dsp/fft.h"
#include "qvvoice/dsp/filter.h"
#include "qvvoice/dsp/spectrum.h"
#include "qvvoice/dsp/vector.h"

namespace {

constexpr float preemphasis = 0.9f;
constexpr int32_t clip_level = 32000;       // a microphone sample from here on counts as clipped
constexpr int32_t diverge_limit = 50;       // frames
constexpr double energy_limit = 1e9;        // per transform point; full scale stays below it
constexpr float excess_per_point = 10000.f; // error above the microphone's energy that counts as divergence
constexpr float leak_min = 0.005f;
constexpr float rer_max = 0.5f; // residual-to-error ratio

// Comparison of the two paths: weights of the averages and thresholds, in units of their variance.
constexpr float refresh_short = 0.5f, refresh_long = 0.25f, reset_all = 4.f;

constexpr auto owned = [](AecMdfState &st, auto visit) {
  const int32_t n = st.swFrameLen, f = st.swFftLen, m = st.swPartNum;
  for (float **array : {&st.pfErrTime, &st.pfFarTime, &st.pfEchoTime, &st.pfEchoSpec, &st.pfErrSpec, &st.pfGrad,
                        &st.pfTmp, &st.pfWindow})
    visit(*array, f);
  visit(st.pfFarSpec, (m + 1) * f);
  visit(st.pfNearIn, n);
  visit(st.pfWBg, m * f);
  visit(st.pfWFg, m * f);
  for (float **array :
       {&st.pfFarPow, &st.pfStep, &st.pfErrPsd, &st.pfEchoPsd, &st.pfFarPsd, &st.pfErrPsdAvg, &st.pfEchoPsdAvg})
    visit(*array, n + 1);
  visit(st.pfProp, m);
};

float energy(const float *v, int32_t count) { return VOICE_VvMultAdd(v, v, count, 0.f); }

float signed_square(float x) { return x * std::fabs(x); }

/// Shares of the first training: the early partitions get most of the step.
void design_shares(AecMdfState &st) {
  const auto decay = float(std::exp(double(-2.4f / float(st.swPartNum))));
  st.pfProp[0] = 0.7f;
  for (int32_t j = 1; j < st.swPartNum; ++j)
    st.pfProp[j] = decay * st.pfProp[j - 1];
  const float sum = VOICE_VecSum(st.pfProp, st.swPartNum);
  for (int32_t j = 0; j < st.swPartNum; ++j)
    st.pfProp[j] = 0.8f * st.pfProp[j] / sum;
}

void clear_path_averages(AecMdfState &st) { st.fDavg1 = st.fDavg2 = st.fDvar1 = st.fDvar2 = 0; }

void take_near_end(const int16_t *mic, AecMdfState &st) {
  VOICE_FilterPreemph16(mic, &st.fMemNear, st.pfNearIn, st.swFrameLen, st.fPreemph);
}

/// Appends the reference block and its spectrum; the spectra of the last M + 1 blocks are kept.
void take_far_end(const int16_t *ref, AecMdfState &st) {
  const int32_t n = st.swFrameLen, f = st.swFftLen;
  std::copy_n(st.pfFarTime + n, n, st.pfFarTime);
  VOICE_FilterPreemph16(ref, &st.fMemFar, st.pfFarTime + n, n, st.fPreemph);
  std::copy_backward(st.pfFarSpec, st.pfFarSpec + st.swPartNum * f, st.pfFarSpec + (st.swPartNum + 1) * f);
  VOICE_Fft(st.pfFarTime, st.pfFarSpec, f);
}

/// Echo estimate of one path: its block stands in the second half of `time`.
void estimate_echo(const float *weights, float *time, AecMdfState &st) {
  VOICE_SpectralMulAccum(st.pfFarSpec, weights, st.pfEchoSpec, st.swFftLen, st.swPartNum);
  VOICE_Ifft(st.pfEchoSpec, time, st.swFftLen);
}

/// error[i] = microphone - echo[i] @return its energy
float subtract_echo(const float *echo, float *error, const AecMdfState &st) {
  for (int32_t i = 0; i < st.swFrameLen; ++i)
    error[i] = st.pfNearIn[i] - echo[i];
  return energy(error, st.swFrameLen);
}

/// Proportionate adaptation: partitions with larger weights get larger shares of the step.
void renew_shares(AecMdfState &st) {
  float largest = 1.f;
  for (int32_t j = 0; j < st.swPartNum; ++j) {
    st.pfProp[j] = std::sqrt(1.f + energy(st.pfWBg + j * st.swFftLen, st.swFftLen));
    largest = std::max(largest, st.pfProp[j]);
  }
  float sum = 1.f;
  for (int32_t j = 0; j < st.swPartNum; ++j) {
    st.pfProp[j] += 0.1f * largest;
    sum += st.pfProp[j];
  }
  for (int32_t j = 0; j < st.swPartNum; ++j)
    st.pfProp[j] = 0.99f * st.pfProp[j] / sum;
}

/// gradient = share * step * E * conj(X), per bin.
void weight_gradient(const float *far, float share, AecMdfState &st) {
  const int32_t n = st.swFrameLen, f = st.swFftLen;
  const float *error = st.pfErrSpec, *step = st.pfStep;
  float *__restrict gradient = st.pfGrad;
  gradient[0] = share * step[0] * far[0] * error[0];
  for (int32_t k = 1; k < n; ++k) {
    const float rate = share * step[k];
    const float xr = far[2 * k - 1], xi = far[2 * k], er = error[2 * k - 1], ei = error[2 * k];
    gradient[2 * k - 1] = rate * (xr * er + xi * ei);
    gradient[2 * k] = rate * (xr * ei - xi * er);
  }
  gradient[f - 1] = share * step[n] * far[f - 1] * error[f - 1];
}

/// Adapts the background by the previous frame's error: partition j saw the block that is now j + 1.
void adapt_background(AecMdfState &st) {
  const int32_t f = st.swFftLen;
  for (int32_t j = st.swPartNum - 1; j >= 0; --j) {
    weight_gradient(st.pfFarSpec + (j + 1) * f, st.pfProp[j], st);
    float *weights = st.pfWBg + j * f;
    for (int32_t i = 0; i < f; ++i)
      weights[i] += st.pfGrad[i];
  }
}

/// Keeps a partition's impulse response to N taps, so that its circular convolution stays linear. The
/// first partition is constrained in every frame, the others in turn.
void constrain_background(AecMdfState &st) {
  const int32_t n = st.swFrameLen, f = st.swFftLen;
  for (int32_t j = 0; j < st.swPartNum; ++j) {
    if (j > 0 && st.swFrameCnt % (st.swPartNum - 1) != j - 1)
      continue;
    float *weights = st.pfWBg + j * f;
    VOICE_Ifft(weights, st.pfTmp, f);
    std::fill_n(st.pfTmp + n, n, 0.f);
    VOICE_Fft(st.pfTmp, weights, f);
  }
}

/// Energies of a frame, pre-emphasised.
struct Energies {
  float far;        ///< Sxx
  float foreground; ///< Sff, error of the foreground
  float background; ///< See, error of the background
  float paths;      ///< Dbf, difference of the two echo estimates
};

/// Background error into the first half of the error buffer, whose second half keeps the foreground's
/// echo estimate until the output is made.
void background_error(Energies &frame, AecMdfState &st) {
  const int32_t n = st.swFrameLen;
  for (int32_t i = 0; i < n; ++i)
    st.pfErrTime[i] = st.pfErrTime[n + i] - st.pfEchoTime[n + i];
  frame.paths = 10.f + energy(st.pfErrTime, n);
  frame.background = subtract_echo(st.pfEchoTime + n, st.pfErrTime, st);
}

/// The background has proved better: it becomes the foreground; the output fades over to it.
void refresh_foreground(AecMdfState &st) {
  const int32_t n = st.swFrameLen;
  clear_path_averages(st);
  std::copy_n(st.pfWBg, st.swPartNum * st.swFftLen, st.pfWFg);
  for (int32_t i = n; i < 2 * n; ++i)
    st.pfErrTime[i] = st.pfWindow[i] * st.pfErrTime[i] + st.pfWindow[i - n] * st.pfEchoTime[i];
}

/// The background has gone wrong: it starts again from the foreground.
void reset_background(Energies &frame, AecMdfState &st) {
  const int32_t n = st.swFrameLen;
  std::copy_n(st.pfWFg, st.swPartNum * st.swFftLen, st.pfWBg);
  std::copy_n(st.pfErrTime + n, n, st.pfEchoTime + n);
  for (int32_t i = 0; i < n; ++i)
    st.pfErrTime[i] = st.pfNearIn[i] - st.pfEchoTime[n + i];
  frame.background = frame.foreground;
  clear_path_averages(st);
}

/// Two-path control: the gain of the background over the foreground, at once and averaged over a short
/// and a long time, against what chance would give.
void compare_paths(Energies &frame, AecMdfState &st) {
  const float gain = frame.foreground - frame.background;
  const float variance = frame.foreground * frame.paths;
  st.fDavg1 = 0.6f * st.fDavg1 + 0.4f * gain;
  st.fDavg2 = 0.85f * st.fDavg2 + 0.15f * gain;
  st.fDvar1 = 0.36f * st.fDvar1 + 0.16f * frame.foreground * frame.paths;
  st.fDvar2 = 0.7225f * st.fDvar2 + 0.0225f * frame.foreground * frame.paths;

  const bool better = signed_square(gain) > variance || signed_square(st.fDavg1) > refresh_short * st.fDvar1 ||
                      signed_square(st.fDavg2) > refresh_long * st.fDvar2;
  const bool worse = -signed_square(gain) > reset_all * variance || -signed_square(st.fDavg1) > reset_all * st.fDvar1 ||
                     -signed_square(st.fDavg2) > reset_all * st.fDvar2;
  qv::aec::last_frame.foreground_refreshed = better;
  qv::aec::last_frame.background_reset = !better && worse;
  if (better)
    refresh_foreground(st);
  else if (worse)
    reset_background(frame, st);
}

/// Undoes the pre-emphasis of the foreground's error. A clipped microphone holds the next update off.
void make_output(const int16_t *mic, int16_t *out, AecMdfState &st) {
  const float *echo = st.pfErrTime + st.swFrameLen;
  for (int32_t i = 0; i < st.swFrameLen; ++i) {
    st.fMemOut = st.pfNearIn[i] - echo[i] + preemphasis * st.fMemOut;
    out[i] = qv::to_sample(st.fMemOut);
    if ((mic[i] <= -clip_level || mic[i] >= clip_level) && st.swSatHold == 0)
      st.swSatHold = 1;
  }
}

/// Spectra and powers of the background's error and echo estimate, zero-padded in front.
void analyse_error(AecMdfState &st) {
  const int32_t n = st.swFrameLen, f = st.swFftLen;
  std::copy_n(st.pfErrTime, n, st.pfErrTime + n);
  std::fill_n(st.pfErrTime, n, 0.f);
  std::fill_n(st.pfEchoTime, n, 0.f);
  VOICE_Fft(st.pfErrTime, st.pfErrSpec, f);
  VOICE_Fft(st.pfEchoTime, st.pfEchoSpec, f);
  VOICE_PowerSpectrumCcum(st.pfErrSpec, st.pfErrPsd, f);
  VOICE_PowerSpectrumCcum(st.pfEchoSpec, st.pfEchoPsd, f);
}

/// Watches for energies that no signal has, and for a foreground that adds echo frame after frame.
/// @return whether the filter has to start again
bool diverged(const Energies &frame, float echo_energy, int16_t *out, AecMdfState &st) {
  const double limit = st.swFftLen * energy_limit;
  const bool absurd = echo_energy < 0 || frame.far < 0 || frame.background < 0 ||
                      !(double(frame.foreground) < limit && double(echo_energy) < limit && double(frame.far) < limit);
  const float near_energy = energy(st.pfNearIn, st.swFrameLen);
  if (absurd) {
    st.swDivergeCnt += diverge_limit;
    std::fill_n(out, st.swFrameLen, int16_t(0));
  } else if (frame.foreground > near_energy + float(st.swFftLen) * excess_per_point) {
    ++st.swDivergeCnt;
  } else {
    st.swDivergeCnt = 0;
  }
  return st.swDivergeCnt >= diverge_limit;
}

void follow_far_power(AecMdfState &st) {
  const auto weight = float(0.35 / st.swPartNum);
  VOICE_PowerSpectrumCcum(st.pfFarSpec, st.pfFarPsd, st.swFftLen);
  for (int32_t k = 0; k <= st.swFrameLen; ++k)
    st.pfFarPow[k] = (1.f - weight) * st.pfFarPow[k] + 1.f + weight * st.pfFarPsd[k];
}

/// Regression of the error's power on the echo's, both about their means: how much echo leaks through.
void estimate_leakage(float background_energy, float echo_energy, AecMdfState &st) {
  float correlation = 1.f, power = 1.f;
  for (int32_t k = st.swFrameLen; k >= 0; --k) {
    const float error = st.pfErrPsd[k] - st.pfErrPsdAvg[k];
    const float echo = st.pfEchoPsd[k] - st.pfEchoPsdAvg[k];
    correlation += error * echo;
    power += echo * echo;
  }
  for (int32_t k = 0; k <= st.swFrameLen; ++k) {
    st.pfErrPsdAvg[k] = qv::recursive_average(st.pfErrPsdAvg[k], 1.f - st.fSpecAvg, st.pfErrPsd[k], st.fSpecAvg);
    st.pfEchoPsdAvg[k] = qv::recursive_average(st.pfEchoPsdAvg[k], 1.f - st.fSpecAvg, st.pfEchoPsd[k], st.fSpecAvg);
  }
  power = std::sqrt(power);
  correlation /= power;

  const float rate = std::min(st.fBeta0 * echo_energy, st.fBetaMax * background_energy) / background_energy;
  st.fPey = qv::recursive_average(st.fPey, 1.f - rate, correlation, rate);
  st.fPyy = qv::recursive_average(st.fPyy, 1.f - rate, power, rate);
  if (st.fPyy < 1.f)
    st.fPyy = 1.f;
  if (st.fPey < leak_min * st.fPyy)
    st.fPey = leak_min * st.fPyy;
  if (st.fPey > st.fPyy)
    st.fPey = st.fPyy;
  st.fLeak = st.fPey / st.fPyy;
}

/// Residual echo over error energy, at most 0.5; at least what their correlation proves.
float residual_to_error(const Energies &frame, float echo_energy, float correlation, const AecMdfState &st) {
  const double leaked = 0.0001 * double(frame.far) + 3.0 * double(st.fLeak) * double(echo_energy);
  const auto ratio = float(leaked / double(frame.background));
  const float proved = correlation * correlation / (1.f + frame.background * echo_energy);
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

/// Whether a quantity that outlives the frame has become infinite or undefined; the energies that the
/// watchdog sees do not show these.
bool undefined_memory(const AecMdfState &st) {
  const float sum = st.fMemOut + st.fLeak + st.fSumAdapt + st.fDavg1 + st.fDavg2 + st.fDvar1 + st.fDvar2;
  return !std::isfinite(sum) || !qv::all_finite(st.pfErrPsdAvg, st.swFrameLen + 1) ||
         !qv::all_finite(st.pfEchoPsdAvg, st.swFrameLen + 1);
}

/// Back to the untrained filter. What a reset keeps is made good if it is undefined.
void start_again(AecMdfState &st) {
  AEC_MdfReset(&st);
  if (!std::isfinite(st.fLeak))
    st.fLeak = 0;
  if (!qv::all_finite(st.pfProp, st.swPartNum))
    design_shares(st);
  qv::aec::last_frame.filter_reset = true;
}

} // namespace

int32_t AEC_MdfInit(const AecMdfPara *para, AecMdfState *st) {
  const int32_t n = para->swFrameLen;
  const auto rate = float(para->swSampleRate);
  *st = {};
  st->swFrameLen = n;
  st->swFftLen = 2 * n;
  st->swPartNum = n > 0 ? (n + para->swFilterLen - 1) / n : 0;
  st->fSpecAvg = float(n) / rate;
  st->fBeta0 = 2.f * float(n) / rate;
  st->fBetaMax = 0.5f * float(n) / rate;
  st->fPey = st->fPyy = 1.f;
  st->fPreemph = preemphasis;
  if (!qv::take(*st, owned) || n < 1)
    return 0;
  qv::hann_window(st->pfWindow, st->swFftLen);
  std::fill_n(st->pfStep, n + 1, 1.f);
  design_shares(*st);
  return 0;
}

void AEC_MdfReset(AecMdfState *st) {
  const int32_t bins = st->swFrameLen + 1, f = st->swFftLen, m = st->swPartNum;
  st->swFrameCnt = st->swDivergeCnt = st->swAdapted = st->swSatHold = 0;
  st->fSumAdapt = 0;
  std::fill_n(st->pfWBg, m * f, 0.f);
  std::fill_n(st->pfWFg, m * f, 0.f);
  std::fill_n(st->pfFarSpec, (m + 1) * f, 0.f);
  std::fill_n(st->pfErrSpec, f, 0.f);
  std::fill_n(st->pfFarTime, f, 0.f);
  for (float *power : {st->pfFarPow, st->pfErrPsdAvg, st->pfEchoPsdAvg})
    std::fill_n(power, bins, 0.f);
  std::fill_n(st->pfStep, bins, 1.f);
  st->fMemFar = st->fMemNear = st->fMemOut = 0;
  st->fPey = st->fPyy = 1.f;
  clear_path_averages(*st);
}

int32_t AEC_MdfDestory(AecMdfState *st) {
  qv::give_back(*st, owned);
  return 0;
}

int32_t AEC_MdfProcess(const int16_t *mic, const int16_t *ref, int16_t *out, AecMdfState *st) {
  const int32_t n = st->swFrameLen;
  Energies frame;
  qv::count_up(st->swFrameCnt);
  qv::aec::last_frame.filter_reset = false;

  take_near_end(mic, *st);
  take_far_end(ref, *st);
  frame.far = energy(st->pfFarTime + n, n);

  estimate_echo(st->pfWFg, st->pfErrTime, *st);
  frame.foreground = subtract_echo(st->pfErrTime + n, st->pfErrTime, *st);

  if (st->swAdapted == 1)
    renew_shares(*st);
  if (st->swSatHold > 0)
    --st->swSatHold;
  else
    adapt_background(*st);
  constrain_background(*st);
  estimate_echo(st->pfWBg, st->pfEchoTime, *st);
  background_error(frame, *st);

  compare_paths(frame, *st);
  make_output(mic, out, *st);
  analyse_error(*st);

  const float correlation = VOICE_VvMultAdd(st->pfErrTime + n, st->pfEchoTime + n, n, 0.f);
  const float echo_energy = energy(st->pfEchoTime + n, n);
  if (diverged(frame, echo_energy, out, *st)) {
    start_again(*st);
    return 0;
  }
  frame.background = std::max(frame.background, 100.f * float(st->swFftLen));
  follow_far_power(*st);
  estimate_leakage(frame.background, echo_energy, *st);
  if (undefined_memory(*st)) {
    std::fill_n(out, n, int16_t(0));
    start_again(*st);
    return 0;
  }

  const bool enough_training = st->fSumAdapt > float(st->swPartNum) && st->fLeak * echo_energy > 0.03f * echo_energy;
  if (st->swAdapted == 0 && enough_training)
    st->swAdapted = 1;
  if (st->swAdapted == 1)
    set_trained_steps(residual_to_error(frame, echo_energy, correlation, *st), *st);
  else
    set_provisional_steps(frame, *st);
  return 0;
}
