#include <algorithm>

#include "dsp/arrays.h"
#include "dsp/fma.h"
#include "dsp/sample.h"
#include "post/stages.h"

namespace {

constexpr int32_t max_taps = 2 * EQ_MAX_HALF_TAPS - 1;

constexpr auto owned = [](EqState &st, auto visit) {
  visit(st.pfCoef, st.swTapNum);
  visit(st.pswHistory, std::max(st.swTapNum - 1, 0) + st.swFrameLen);
};

/// y[j] = sum over k of x[j + k] * taps[k], k ascending, one fused multiply-add per tap. Outputs are
/// computed side by side; a sum never depends on its neighbours.
/// @param x     [count + tap_count - 1] 16-bit samples as floats, oldest first; readable up to a whole number of lanes
/// @param taps  [tap_count] multiples of 2^-15
/// @param y     [count] rounded samples
void filter_symmetric(const float *x, const float *taps, int32_t tap_count, int16_t *y, int32_t count) {
  constexpr int32_t lanes = 32; // enough sums in flight to hide their latency
  static_assert(QV_MAX_FRAME % lanes == 0);
  for (int32_t j = 0; j < count; j += lanes) {
    float sum[lanes] = {};
    for (int32_t k = 0; k < tap_count; ++k)
      for (int32_t lane = 0; lane < lanes; ++lane)
        sum[lane] = qv::fma_q15(x[j + k + lane], taps[k], sum[lane]);
    qv::to_samples(y + j, std::min(lanes, count - j), [&](int32_t lane) { return sum[lane]; });
  }
}

} // namespace

namespace qv::post {

int32_t tap_count(const EqPara &para) {
  const int32_t half = std::clamp<int32_t>(para.swHalfTapNum, 0, EQ_MAX_HALF_TAPS);
  return std::max(2 * half - 1, 0);
}

bool init(const EqPara &para, EqState &state, int32_t capacity) {
  state.swFrameLen = para.swFrameLen;
  state.swTapNum = int16_t(capacity);
  if (!take(state, owned))
    return false;
  design(para, state);
  return true;
}

void design(const EqPara &para, EqState &state) {
  state.swEqEnable = para.swEqEnable;
  state.swTapNum = int16_t(tap_count(para));
  if (state.swTapNum == 0)
    return;
  const int32_t half = (state.swTapNum + 1) / 2;
  float *centre = std::copy_n(para.afCoef, half, state.pfCoef);
  std::reverse_copy(para.afCoef, para.afCoef + half - 1, centre);
  std::fill_n(state.pswHistory, state.swTapNum - 1, int16_t(0));
}

} // namespace qv::post

void EQ_Init(const EqPara *para, EqState *state) {
  qv::post::init(*para, *state, qv::post::tap_count(*para));
}

void EQ_Destroy(EqState *state) { qv::give_back(*state, owned); }

void EQ_Process(const int16_t *in, int16_t *out, EqState *state) {
  const int32_t n = state->swFrameLen;
  if (state->swEqEnable == 0 || state->swTapNum == 0) {
    std::copy_n(in, n, out);
    return;
  }
  const int32_t memory = state->swTapNum - 1;
  int16_t *history = state->pswHistory;
  std::copy_n(in, n, history + memory);
  float x[max_taps - 1 + QV_MAX_FRAME] = {};
  std::copy_n(history, memory + n, x);
  filter_symmetric(x, state->pfCoef, state->swTapNum, out, n);
  std::copy_n(history + n, memory, history);
}
