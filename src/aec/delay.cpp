// Echo delay from binary spectra: one bit per bin and block, compared by counting differing bits.

#include <algorithm>
#include <bit>

#include "aec/canceller.h"
#include "dsp/arrays.h"
#include "dsp/counter.h"
#include "dsp/smoothing.h"
#include "qvvoice/dsp/spectrum.h"

namespace {

constexpr int32_t first_bin = 12;          // 600 or 750 Hz: speech power, above room rumble
constexpr int32_t word_bits = 32;          // up to 2150 or 2687 Hz
constexpr float threshold_rate = 1.f / 64; // per block

constexpr int32_t q9(double count) { return int32_t(count * 512); }
constexpr int32_t mean_start = q9(20.0);
constexpr int32_t worst_count = q9(32.0);     // all bits differ
constexpr int32_t threshold_floor = q9(17.0); // about what unrelated signals give
constexpr int32_t spread_min = q9(5.5);       // between best and worst for a valley to count
constexpr int32_t margin = q9(2.0);           // of the acceptance threshold above the best count

constexpr auto owned_tracker = [](AecDelayBinaryState &st, auto visit) {
  visit(st.aswMeanBitCnt, st.swHistorySize);
  visit(st.aswFarBitCnt, st.swHistorySize);
  visit(st.aswBitCnt, st.swHistorySize);
  visit(st.auwFarHist, st.swHistorySize);
  visit(st.auwNearHist, st.swNearHistorySize);
};

constexpr auto owned = [](AecDelayState &st, auto visit) {
  for (float **array : {&st.pfNearTime, &st.pfFarTime, &st.pfNearWin, &st.pfFarWin, &st.pfWindow})
    visit(*array, st.swFftLen);
  visit(st.pfFarThr, st.swBlockLen + 1);
  visit(st.pfNearThr, st.swBlockLen + 1);
};

/// One bit per bin: power above its slow average, which takes half the first power as its start.
uint32_t binary_spectrum(const float *power, float *threshold, int32_t &seeded) {
  if (!seeded)
    for (int32_t i = 0; i < word_bits; ++i)
      if (power[i] > 0) {
        threshold[i] = power[i] / 2.f;
        seeded = 1;
      }
  uint32_t word = 0;
  for (int32_t i = 0; i < word_bits; ++i) {
    threshold[i] += (power[i] - threshold[i]) * threshold_rate;
    word |= uint32_t(power[i] > threshold[i]) << i;
  }
  return word;
}

/// Slides one signal on by a block and reduces it to its word.
uint32_t analyse(const int16_t *block, float *time, float *windowed, float *threshold, int32_t &seeded,
                 const AecDelayState &st, const qv::Services &dsp) {
  const int32_t len = st.swBlockLen;
  std::copy_n(time + len, len, time);
  std::copy_n(block, len, time + len);
  for (int32_t i = 0; i < st.swFftLen; ++i)
    windowed[i] = time[i] * st.pfWindow[i];
  float spectrum[QV_MAX_FRAME], power[word_bits + 2];
  dsp.forward(windowed, spectrum, st.swFftLen);
  // Of the compared bins only: as a short spectrum, whose first and last power are not looked at.
  VOICE_PowerSpectrumCcum(spectrum + 2 * (first_bin - 1), power, 2 * (word_bits + 1));
  return binary_spectrum(power + 1, threshold + first_bin, seeded);
}

template <class Element> void push_front(Element *history, int32_t count, Element value) {
  std::copy_backward(history, history + count - 1, history + count);
  history[0] = value;
}

/// Moves each candidate's mean towards this block's count, faster for richer reference words, by steps
/// rounded towards zero. An empty reference word says nothing and moves nothing.
void smooth_counts(AecDelayBinaryState &st) {
  const int32_t candidates = st.swHistorySize, *count = st.aswBitCnt, *far_count = st.aswFarBitCnt;
  int32_t *__restrict mean = st.aswMeanBitCnt;
  for (int32_t i = 0; i < candidates; ++i) {
    const int32_t shifts = 13 - ((3 * far_count[i]) >> 4);
    const int32_t difference = count[i] * 512 - mean[i];
    const int32_t towards_zero = difference < 0 ? (1 << shifts) - 1 : 0;
    mean[i] += far_count[i] > 0 ? (difference + towards_zero) >> shifts : 0;
  }
}

/// Lowers the acceptance threshold when the valley is deep; it never rises.
void tighten_threshold(int32_t best, int32_t worst, AecDelayBinaryState &st) {
  if (st.swMinProb > threshold_floor && worst - best > spread_min)
    st.swMinProb = std::min(st.swMinProb, std::max(best + margin, threshold_floor));
}

bool init_tracker(int32_t history_size, int32_t lookahead, AecDelayBinaryState &st) {
  st = {};
  st.swHistorySize = history_size + lookahead;
  st.swNearHistorySize = lookahead + 1;
  st.swMinProb = st.swLastDelayProb = worst_count;
  if (!qv::take(st, owned_tracker))
    return false;
  std::fill_n(st.aswMeanBitCnt, st.swHistorySize, mean_start);
  return true;
}

/// One block: the words of both signals, and the candidate whose past word fits the microphone's best.
int32_t track_block(const int16_t *mic, const int16_t *ref, int32_t block_len, AecDelayState &st,
                    const qv::Services &dsp) {
  const uint32_t far_word = analyse(ref, st.pfFarTime, st.pfFarWin, st.pfFarThr, st.swFarThrInit, st, dsp);
  const uint32_t near_word = analyse(mic, st.pfNearTime, st.pfNearWin, st.pfNearThr, st.swNearThrInit, st, dsp);
  return block_len * AEC_BinarySpectrumProcess(&st.stBinary, far_word, near_word);
}

} // namespace

namespace qv::aec {

bool init_delay(const AecDelayPara &para, AecDelayState &st) {
  st = {};
  st.swDelayEstEnable = para.swDelayEstEnable;
  st.swBlockLen = para.swBlockLen;
  st.swFftLen = 2 * para.swBlockLen;
  const bool taken = take(st, owned);
  if (taken)
    hann_window(st.pfWindow, st.swFftLen);
  return init_tracker(para.swHistorySize, para.swLookahead, st.stBinary) && taken;
}

int32_t track(const int16_t *mic, const int16_t *ref, int32_t n, AecDelayState &st, const Services &dsp) {
  const int32_t len = st.swBlockLen;
  int32_t delay = len * st.stBinary.swLastDelay;
  for (int32_t start = 0; start + len <= n; start += len)
    delay = track_block(mic + start, ref + start, len, st, dsp);
  return delay;
}

} // namespace qv::aec

void AEC_DelayInit(const AecDelayPara *para, AecDelayState *st) { qv::aec::init_delay(*para, *st); }

void AEC_DelayBinaryInit(int32_t historySize, int32_t lookahead, AecDelayBinaryState *st) {
  init_tracker(historySize, lookahead, *st);
}

void AEC_DelayDestroy(AecDelayState *st) {
  qv::give_back(*st, owned);
  AEC_DelayBinaryDestroy(&st->stBinary);
}

void AEC_DelayBinaryDestroy(AecDelayBinaryState *st) { qv::give_back(*st, owned_tracker); }

int32_t AEC_DelayProcess(const int16_t *mic, const int16_t *ref, int32_t n, AecDelayState *st) {
  return qv::aec::track(mic, ref, n, *st, qv::process_services);
}

int32_t AEC_DelayProcessSub(const int16_t *mic, const int16_t *ref, int32_t blockLen, AecDelayState *st) {
  return track_block(mic, ref, blockLen, *st, qv::process_services);
}

int32_t AEC_BinarySpectrumProcess(AecDelayBinaryState *st, uint32_t farWord, uint32_t nearWord) {
  const int32_t candidates = st->swHistorySize;
  push_front(st->auwFarHist, candidates, farWord);
  push_front(st->aswFarBitCnt, candidates, int32_t(std::popcount(farWord)));
  if (st->swNearHistorySize > 1) {
    push_front(st->auwNearHist, st->swNearHistorySize, nearWord);
    nearWord = st->auwNearHist[st->swNearHistorySize - 1];
  }
  for (int32_t i = 0; i < candidates; ++i)
    st->aswBitCnt[i] = std::popcount(nearWord ^ st->auwFarHist[i]);
  smooth_counts(*st);

  int32_t best = worst_count, candidate = 0, worst = 0;
  for (int32_t i = 0; i < candidates; ++i) {
    if (st->aswMeanBitCnt[i] < best) {
      best = st->aswMeanBitCnt[i];
      candidate = i;
    }
    worst = std::max(worst, st->aswMeanBitCnt[i]);
  }
  tighten_threshold(best, worst, *st);
  qv::count_up(st->swLastDelayProb);
  if (best < st->swMinProb)
    st->swLastDelay = candidate;
  if (best < st->swLastDelayProb) {
    st->swLastDelay = candidate;
    st->swLastDelayProb = best;
  }
  return st->swLastDelay;
}
