// Two-path control (K. Ochiai, T. Araseki and S. Ogihara, "Echo canceler with two echo path models", 1977):
// which of the two filters is to be believed, the output, and the watchdog over both.

#include <algorithm>
#include <cmath>

#include "aec/mdf_stages.h"
#include "dsp/fma.h"
#include "dsp/sample.h"
#include "dsp/smoothing.h"
#include "qvvoice/dsp/vector.h"

namespace qv::aec {

namespace {

// Where no source is named, a value is this system's choice; the published output depends on each.

constexpr float clip_level = 32000.f;       // a microphone sample from here on counts as clipped: -0.2 dB of full scale
constexpr int32_t diverge_limit = 50;       // frames
constexpr double energy_limit = 1e9;        // per transform point: twice the power of full scale over a frame
constexpr float excess_per_point = 10000.f; // error above the microphone's energy that counts as divergence, -47 dB

// Thresholds of the comparison, in units of the variance that it is held against.
constexpr float refresh_short = 0.5f, refresh_long = 0.25f, reset_all = 4.f;

/// A recursive average of the paths' difference, and the variance of such an average: its weights squared.
struct Averaging {
  double keep; ///< per frame
  constexpr float weight() const { return float(1 - keep); }
  constexpr float variance_keep() const { return float(keep * keep); }
  constexpr float variance_weight() const { return float((1 - keep) * (1 - keep)); }

  float average(float old, float now) const { return recursive_average(old, float(keep), now, weight()); }
  float variance(float old, const Energies &frame) const {
    return variance_keep() * old + variance_weight() * frame.foreground * frame.paths;
  }
};
constexpr Averaging short_time = {0.6}, long_time = {0.85}; // 2 and 6 frames to 1 / e
static_assert(short_time.weight() == 0.4f && short_time.variance_keep() == 0.36f);
static_assert(short_time.variance_weight() == 0.16f && long_time.weight() == 0.15f);
static_assert(long_time.variance_keep() == 0.7225f && long_time.variance_weight() == 0.0225f);

float signed_square(float x) { return x * std::fabs(x); }

/// The background has proved better: it becomes the foreground; the output fades over to it.
void refresh_foreground(AecMdfState &st) {
  const int32_t n = st.swFrameLen;
  std::copy_n(st.pfWBg, st.swPartNum * st.swFftLen, st.pfWFg);
  for (int32_t i = n; i < 2 * n; ++i)
    st.pfErrTime[i] = st.pfWindow[i] * st.pfErrTime[i] + st.pfWindow[i - n] * st.pfEchoTime[i];
  clear_path_averages(st);
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

} // namespace

void clear_path_averages(AecMdfState &st) { st.fDavg1 = st.fDavg2 = st.fDvar1 = st.fDvar2 = 0; }

// The gain of the background over the foreground, at once and averaged over a short and a long time, against
// what chance would give.
void compare_paths(Energies &frame, AecMdfState &st, FrameReport &report) {
  const float gain = frame.foreground - frame.background;
  const float variance = frame.foreground * frame.paths;
  st.fDavg1 = short_time.average(st.fDavg1, gain);
  st.fDavg2 = long_time.average(st.fDavg2, gain);
  st.fDvar1 = short_time.variance(st.fDvar1, frame);
  st.fDvar2 = long_time.variance(st.fDvar2, frame);

  const bool better = signed_square(gain) > variance || signed_square(st.fDavg1) > refresh_short * st.fDvar1 ||
                      signed_square(st.fDavg2) > refresh_long * st.fDvar2;
  const bool worse = -signed_square(gain) > reset_all * variance || -signed_square(st.fDavg1) > reset_all * st.fDvar1 ||
                     -signed_square(st.fDavg2) > reset_all * st.fDvar2;
  report.foreground_refreshed = better;
  report.background_reset = !better && worse;
  if (better)
    refresh_foreground(st);
  else if (worse)
    reset_background(frame, st);
}

// The three recursions share a loop because each waits for its own previous step. A clipped microphone holds
// the next update off.
void make_output(const int16_t *mic, int16_t *out, Energies &frame, AecMdfState &st) {
  const int32_t n = st.swFrameLen;
  const float *error = st.pfErrTime, *echo = st.pfEchoTime + n;
  float emphasised[QV_MAX_FRAME], output[QV_MAX_FRAME];
  for (int32_t i = 0; i < n; ++i)
    emphasised[i] = st.pfNearIn[i] - st.pfErrTime[n + i];
  float last = st.fMemOut;
  frame.correlation = frame.echo = 0;
  for (int32_t i = 0; i < n; ++i) {
    output[i] = last = emphasised[i] + st.fPreemph * last;
    frame.correlation = accumulate(error[i], echo[i], frame.correlation);
    frame.echo = accumulate(echo[i], echo[i], frame.echo);
  }
  st.fMemOut = last;
  to_samples(out, n, [&](int32_t i) { return output[i]; });
  if (st.swSatHold == 0 && VOICE_VecAbsMax(mic, n) >= clip_level)
    st.swSatHold = 1;
}

bool diverged(const Energies &frame, int16_t *out, AecMdfState &st) {
  const double limit = st.swFftLen * energy_limit;
  const bool absurd = frame.echo < 0 || frame.far < 0 || frame.background < 0 ||
                      !(double(frame.foreground) < limit && double(frame.echo) < limit && double(frame.far) < limit);
  if (absurd) {
    st.swDivergeCnt += diverge_limit;
    std::fill_n(out, st.swFrameLen, int16_t(0));
  } else if (frame.foreground > frame.near + float(st.swFftLen) * excess_per_point) {
    ++st.swDivergeCnt;
  } else {
    st.swDivergeCnt = 0;
  }
  return st.swDivergeCnt >= diverge_limit;
}

} // namespace qv::aec
