// Echo canceller: keeps the reference's history, aligns it to the echo, and runs the stages in order.

#include <algorithm>

#include "aec/canceller.h"
#include "dsp/arrays.h"
#include "dsp/counter.h"

namespace qv::aec {

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
/// @return whether it moved
bool follow_delay(const int16_t *mic, const int16_t *ref, AecState &st, const Services &dsp) {
  const int32_t delay = track(mic, ref, st.swFrameLen, st.stDelay, dsp);
  const bool changed = delay != st.swEchoDelay;
  if (changed)
    st.stNlp.swDelaySameCnt = 0;
  else
    count_up(st.stNlp.swDelaySameCnt);
  st.stNlp.swDelayMute = st.stNlp.swDelaySameCnt < mute_frames;
  st.swEchoDelay = delay;
  return changed;
}

} // namespace

bool init(const AecPara &para, AecState &st, const FilterBank &bank) {
  st = {};
  st.swAecEnable = para.swAecEnable;
  st.swFrameLen = para.swFrameLen;
  st.swEchoDelay = para.swEchoDelay;
  AEC_DtdInit(&para.stDtd, &st.stDtd);
  const bool taken[] = {take(st, owned), init_delay(para.stDelay, st.stDelay), init_filter(para.stMdf, st.stMdf),
                        init_suppressor(para.stNlp, st.stNlp, bank)};
  return std::ranges::all_of(taken, [](bool done) { return done; });
}

void retune(const AecPara &para, AecState &st, const FilterBank &bank) {
  st.swAecEnable = para.swAecEnable;
  st.stDelay.swDelayEstEnable = para.stDelay.swDelayEstEnable;
  if (para.stDelay.swDelayEstEnable != 1)
    st.swEchoDelay = para.swEchoDelay;
  retune_suppressor(para.stNlp, st.stNlp, bank);
  retune_detector(para.stDtd, st.stDtd);
}

void process(const int16_t *mic, const int16_t *ref, int16_t *out, AecState &st, const float *anr_gain,
             const Services &dsp, FrameReport &report) {
  const int32_t n = st.swFrameLen;
  append_history(ref, st);
  report.delay_changed = st.stDelay.swDelayEstEnable == 1 && follow_delay(mic, ref, st, dsp);
  if (st.stDelay.swDelayEstEnable != 1)
    st.stNlp.swDelayMute = 0;
  if (st.swAecEnable == 0) {
    std::copy_n(mic, n, out);
    return;
  }

  const int16_t *aligned = st.psFarHist + AEC_MAX_DELAY - std::clamp(st.swEchoDelay, 0, AEC_MAX_DELAY);
  report.mic_energy_prev = report.mic_energy;
  report.mic_energy = energy(mic, n);
  filter(mic, aligned, out, st.stMdf, dsp, report);
  report.linear_energy = energy(out, n);
  AEC_DtdProcessPassJudge(aligned, &st.stDtd);
  suppress(mic, aligned, out, st.stDtd, st.stNlp, anr_gain, st.stMdf.fLeak, dsp, report);
  report.out_energy = energy(out, n);
}

} // namespace qv::aec

using namespace qv::aec;

void AEC_Init(const AecPara *para, AecState *st) { init(*para, *st, qv::process_bank); }

void AEC_Process(const int16_t *mic, const int16_t *ref, int16_t *out, AecState *st, const float *anrGain) {
  FrameReport unread;
  process(mic, ref, out, *st, anrGain, qv::process_services, unread);
}

void AEC_Destroy(AecState *st) {
  qv::give_back(*st, owned);
  AEC_DelayDestroy(&st->stDelay);
  AEC_MdfDestory(&st->stMdf);
  AEC_NlpDestory(&st->stNlp);
  AEC_DtdDestroy(&st->stDtd);
}
