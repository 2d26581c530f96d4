// Echo canceller: keeps the reference's history, aligns it to the echo, and runs the stages in order.

#include "qvvoice/aec/aec.h"

#include <algorithm>

#include "aec/frame_report.h"
#include "dsp/arrays.h"
#include "dsp/counter.h"

qv::aec::FrameReport qv::aec::last_frame;

namespace {

constexpr int32_t mute_frames = 5; // after the delay estimate has moved

constexpr auto owned = [](AecState &st, auto visit) { visit(st.psFarHist, AEC_MAX_DELAY + st.swFrameLen); };

int64_t energy(const int16_t *v, int32_t count) {
  int64_t sum = 0;
  for (int32_t i = 0; i < count; ++i)
    sum += int32_t(v[i]) * v[i];
  return sum;
}

void append_history(const int16_t *ref, AecState &st) {
  std::copy_n(st.psFarHist + st.swFrameLen, AEC_MAX_DELAY, st.psFarHist);
  std::copy_n(ref, st.swFrameLen, st.psFarHist + AEC_MAX_DELAY);
}

/// Takes over the estimate; the suppressor mutes until it has held for some frames.
void track_delay(const int16_t *mic, const int16_t *ref, AecState &st) {
  const int32_t delay = AEC_DelayProcess(mic, ref, st.swFrameLen, &st.stDelay);
  const bool changed = delay != st.swEchoDelay;
  if (changed)
    st.stNlp.swDelaySameCnt = 0;
  else
    qv::count_up(st.stNlp.swDelaySameCnt);
  st.stNlp.swDelayMute = st.stNlp.swDelaySameCnt < mute_frames;
  st.swEchoDelay = delay;
  qv::aec::last_frame.delay_changed = changed;
}

} // namespace

void AEC_Init(const AecPara *para, AecState *st) {
  *st = {};
  st->swAecEnable = para->swAecEnable;
  st->swFrameLen = para->swFrameLen;
  st->swEchoDelay = para->swEchoDelay;
  qv::aec::last_frame = {};
  std::ranges::fill(qv::aec::last_frame.bin_gain, 1.f); // nothing suppressed yet
  qv::take(*st, owned);
  AEC_DelayInit(&para->stDelay, &st->stDelay);
  AEC_MdfInit(&para->stMdf, &st->stMdf);
  AEC_DtdInit(&para->stDtd, &st->stDtd);
  AEC_NlpInit(&para->stNlp, &st->stNlp);
}

void AEC_Process(const int16_t *mic, const int16_t *ref, int16_t *out, AecState *st, const float *anrGain) {
  const int32_t n = st->swFrameLen;
  append_history(ref, *st);
  if (st->stDelay.swDelayEstEnable == 1)
    track_delay(mic, ref, *st);
  else
    st->stNlp.swDelayMute = 0;
  if (st->swAecEnable == 0) {
    std::copy_n(mic, n, out);
    return;
  }

  const int16_t *aligned = st->psFarHist + AEC_MAX_DELAY - std::clamp(st->swEchoDelay, 0, AEC_MAX_DELAY);
  qv::aec::FrameReport &report = qv::aec::last_frame;
  report.mic_energy_prev = report.mic_energy;
  report.mic_energy = energy(mic, n);
  AEC_MdfProcess(mic, aligned, out, &st->stMdf);
  report.linear_energy = energy(out, n);
  AEC_DtdProcessPassJudge(aligned, &st->stDtd);
  AEC_NlpProcess(mic, aligned, out, &st->stDtd, &st->stNlp, anrGain, st->stMdf.fLeak);
  report.out_energy = energy(out, n);
}

void AEC_Destroy(AecState *st) {
  qv::give_back(*st, owned);
  AEC_DelayDestroy(&st->stDelay);
  AEC_MdfDestory(&st->stMdf);
  AEC_NlpDestory(&st->stNlp);
  AEC_DtdDestroy(&st->stDtd);
}
