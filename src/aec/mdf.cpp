// Two-path adaptive echo filter: a multidelay block frequency-domain filter (J.-S. Soo and K. K. Pang,
// "Multidelay block frequency domain adaptive filter", 1990) that adapts in the background, and a
// foreground copy that makes the output. Here: its state, and the stages of a frame in order.

#include <algorithm>
#include <cmath>

#include "aec/canceller.h"
#include "aec/mdf_stages.h"
#include "dsp/arrays.h"
#include "dsp/bins.h"
#include "dsp/counter.h"
#include "dsp/smoothing.h"

namespace {

using namespace qv::aec;

constexpr float preemphasis = 0.9f;
constexpr float error_floor_per_point = 100.f; // of the background's energy, where it divides

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

/// Whether a quantity that outlives the frame has become infinite or undefined; the energies that the
/// watchdog sees do not show these.
bool undefined_memory(const AecMdfState &st) {
  const float sum = st.fMemOut + st.fLeak + st.fSumAdapt + st.fDavg1 + st.fDavg2 + st.fDvar1 + st.fDvar2;
  const int32_t bins = st.swFrameLen + 1;
  return !std::isfinite(sum) || !qv::all_finite(st.pfFarPow, bins) || !qv::all_finite(st.pfErrPsdAvg, bins) ||
         !qv::all_finite(st.pfEchoPsdAvg, bins);
}

/// Back to the untrained filter. What a reset keeps is made good if it is undefined.
void start_again(AecMdfState &st) {
  AEC_MdfReset(&st);
  if (!std::isfinite(st.fLeak))
    st.fLeak = 0;
  if (!qv::all_finite(st.pfProp, st.swPartNum))
    design_shares(st);
}

} // namespace

namespace qv::aec {

bool init_filter(const AecMdfPara &para, AecMdfState &st) {
  const int32_t n = para.swFrameLen;
  const auto rate = float(para.swSampleRate);
  st = {};
  st.swFrameLen = n;
  st.swFftLen = 2 * n;
  st.swPartNum = n > 0 ? (n + para.swFilterLen - 1) / n : 0;
  st.fSpecAvg = float(n) / rate;
  st.fBeta0 = 2.f * float(n) / rate;
  st.fBetaMax = 0.5f * float(n) / rate;
  st.fPey = st.fPyy = 1.f;
  st.fPreemph = preemphasis;
  if (!take(st, owned))
    return false;
  if (n < 1)
    return true;
  hann_window(st.pfWindow, st.swFftLen);
  std::fill_n(st.pfStep, n + 1, 1.f);
  design_shares(st);
  return true;
}

void filter(const int16_t *mic, const int16_t *ref, int16_t *out, AecMdfState &st, const Services &dsp,
            FrameReport &report) {
  Energies frame;
  count_up(st.swFrameCnt);

  take_frame(mic, ref, st, dsp);
  filter_foreground(st, dsp);
  if (st.swAdapted == 1)
    renew_shares(st);
  if (st.swSatHold > 0)
    --st.swSatHold;
  else
    adapt_background(st);
  constrain_background(st, dsp);
  filter_background(frame, st, dsp);
  compare_paths(frame, st, report);
  make_output(mic, out, frame, st);
  analyse_error(st, dsp);

  report.filter_reset = diverged(frame, out, st);
  if (report.filter_reset) {
    start_again(st);
    return;
  }
  frame.background = std::max(frame.background, error_floor_per_point * float(st.swFftLen));
  follow_far_power(st);
  estimate_leakage(frame, st);
  report.filter_reset = undefined_memory(st);
  if (report.filter_reset) {
    std::fill_n(out, st.swFrameLen, int16_t(0));
    start_again(st);
    return;
  }
  set_steps(frame, st);
}

} // namespace qv::aec

int32_t AEC_MdfInit(const AecMdfPara *para, AecMdfState *st) {
  init_filter(*para, *st);
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
  FrameReport unread;
  filter(mic, ref, out, *st, qv::process_services, unread);
  return 0;
}
