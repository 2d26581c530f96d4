// The multidelay block filter itself: overlap-save filtering, gradient, constraint, and the share of the
// step that each partition gets.

#include <algorithm>
#include <cmath>

#include "aec/mdf_stages.h"
#include "dsp/sums.h"
#include "qvvoice/dsp/filter.h"
#include "qvvoice/dsp/spectrum.h"
#include "qvvoice/dsp/vector.h"

namespace qv::aec {

namespace {

// Where no source is named, a value is this system's choice; the published output depends on each.

// Shares of the step per partition. Before training they fall by exp(2.4) = 11 times over the whole filter, as an echo
// tail does; their sum stays below 1.
constexpr float tail_exponent = -2.4f, untrained_sum = 0.8f;
constexpr float first_share = 0.7f; // before scaling to that sum
// Trained: proportional to the partition's amplitude, and a tenth of the largest for each, so that none stands still.
constexpr float equal_share = 0.1f, trained_sum = 0.99f;

constexpr float path_floor = 10.f; // energy that the two echo estimates differ by at least

/// Echo estimate of one path: its block stands in the second half of `time`.
void estimate_echo(const float *weights, float *time, AecMdfState &st, const Services &dsp) {
  VOICE_SpectralMulAccum(st.pfFarSpec, weights, st.pfEchoSpec, st.swFftLen, st.swPartNum);
  dsp.inverse(st.pfEchoSpec, time, st.swFftLen);
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

} // namespace

void take_frame(const int16_t *mic, const int16_t *ref, AecMdfState &st, const Services &dsp) {
  const int32_t n = st.swFrameLen, f = st.swFftLen;
  VOICE_FilterPreemph16(mic, &st.fMemNear, st.pfNearIn, n, st.fPreemph);
  std::copy_n(st.pfFarTime + n, n, st.pfFarTime);
  VOICE_FilterPreemph16(ref, &st.fMemFar, st.pfFarTime + n, n, st.fPreemph);
  std::copy_backward(st.pfFarSpec, st.pfFarSpec + st.swPartNum * f, st.pfFarSpec + (st.swPartNum + 1) * f);
  dsp.forward(st.pfFarTime, st.pfFarSpec, f);
}

void filter_foreground(AecMdfState &st, const Services &dsp) { estimate_echo(st.pfWFg, st.pfErrTime, st, dsp); }

void design_shares(AecMdfState &st) {
  const auto decay = float(std::exp(double(tail_exponent / float(st.swPartNum))));
  st.pfProp[0] = first_share;
  for (int32_t j = 1; j < st.swPartNum; ++j)
    st.pfProp[j] = decay * st.pfProp[j - 1];
  const float sum = VOICE_VecSum(st.pfProp, st.swPartNum);
  for (int32_t j = 0; j < st.swPartNum; ++j)
    st.pfProp[j] = untrained_sum * st.pfProp[j] / sum;
}

// Proportionate adaptation: partitions with larger weights get larger shares of the step.
void renew_shares(AecMdfState &st) {
  const int32_t f = st.swFftLen, m = st.swPartNum;
  for (int32_t j = 0; j < m; j += 2) { // two at a time; the last of an odd number twice
    const float *w0 = st.pfWBg + j * f, *w1 = st.pfWBg + std::min(j + 1, m - 1) * f;
    const auto energies = dot_products<2>({{w0, w0}, {w1, w1}}, f);
    st.pfProp[j] = std::sqrt(1.f + energies[0]);
    st.pfProp[std::min(j + 1, m - 1)] = std::sqrt(1.f + energies[1]);
  }
  const float largest = std::max(1.f, *std::max_element(st.pfProp, st.pfProp + m));
  float sum = 1.f;
  for (int32_t j = 0; j < m; ++j) {
    st.pfProp[j] += equal_share * largest;
    sum += st.pfProp[j];
  }
  for (int32_t j = 0; j < m; ++j)
    st.pfProp[j] = trained_sum * st.pfProp[j] / sum;
}

// Partition j made the previous frame's error from the block that is now j + 1.
void adapt_background(AecMdfState &st) {
  const int32_t f = st.swFftLen;
  for (int32_t j = st.swPartNum - 1; j >= 0; --j) {
    weight_gradient(st.pfFarSpec + (j + 1) * f, st.pfProp[j], st);
    float *weights = st.pfWBg + j * f;
    for (int32_t i = 0; i < f; ++i)
      weights[i] += st.pfGrad[i];
  }
}

// An impulse response of N taps keeps the circular convolution linear. The first partition is constrained
// in every frame, the others in turn.
void constrain_background(AecMdfState &st, const Services &dsp) {
  const int32_t n = st.swFrameLen, f = st.swFftLen;
  for (int32_t j = 0; j < st.swPartNum; ++j) {
    if (j > 0 && st.swFrameCnt % (st.swPartNum - 1) != j - 1)
      continue;
    float *weights = st.pfWBg + j * f;
    dsp.inverse(weights, st.pfTmp, f);
    std::fill_n(st.pfTmp + n, n, 0.f);
    dsp.forward(st.pfTmp, weights, f);
  }
}

void filter_background(Energies &frame, AecMdfState &st, const Services &dsp) {
  const int32_t n = st.swFrameLen;
  const float *near = st.pfNearIn, *far = st.pfFarTime + n;
  const float *foreground_echo = st.pfErrTime + n, *echo = st.pfEchoTime + n;
  float *error = st.pfErrTime, foreground_error[QV_MAX_FRAME], difference[QV_MAX_FRAME];
  estimate_echo(st.pfWBg, st.pfEchoTime, st, dsp);
  for (int32_t i = 0; i < n; ++i) {
    foreground_error[i] = near[i] - foreground_echo[i];
    difference[i] = foreground_echo[i] - echo[i];
    error[i] = near[i] - echo[i];
  }
  const auto energies = dot_products<5>(
      {{near, near}, {far, far}, {foreground_error, foreground_error}, {error, error}, {difference, difference}}, n);
  frame.near = energies[0];
  frame.far = energies[1];
  frame.foreground = energies[2];
  frame.background = energies[3];
  frame.paths = path_floor + energies[4];
}

void analyse_error(AecMdfState &st, const Services &dsp) {
  const int32_t n = st.swFrameLen, f = st.swFftLen;
  std::copy_n(st.pfErrTime, n, st.pfErrTime + n);
  std::fill_n(st.pfErrTime, n, 0.f);
  std::fill_n(st.pfEchoTime, n, 0.f);
  dsp.forward(st.pfErrTime, st.pfErrSpec, f);
  dsp.forward(st.pfEchoTime, st.pfEchoSpec, f);
  VOICE_PowerSpectrumCcum(st.pfErrSpec, st.pfErrPsd, f);
  VOICE_PowerSpectrumCcum(st.pfEchoSpec, st.pfEchoPsd, f);
}

} // namespace qv::aec
