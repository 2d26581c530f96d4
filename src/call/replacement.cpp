#include "call/replacement.h"

#include <algorithm>
#include <utility>

#include "dsp/layout.h"
#include "dsp/sample.h"
#include "post/stages.h"

namespace qv {

namespace {

/// The shortest frames that fill the longest history of an equaliser, and one that fades.
constexpr int32_t crossing_frames = (2 * EQ_MAX_HALF_TAPS - 2 + shortest_frame - 1) / shortest_frame + 1;
constexpr int32_t silent_frames = 3; // that fill the equaliser and two overlapping stages in front

bool same_response(const EqPara &a, const EqPara &b) {
  if (a.swEqEnable == 0 || b.swEqEnable == 0)
    return a.swEqEnable == b.swEqEnable;
  const int32_t half = std::clamp<int32_t>(a.swHalfTapNum, 0, EQ_MAX_HALF_TAPS);
  return a.swHalfTapNum == b.swHalfTapNum && std::equal(a.afCoef, a.afCoef + half, b.afCoef);
}

/// From one signal to another over a frame. @param from,to  [n]  @param out  [n], may be `from` or `to`
void fade(const int16_t *from, const int16_t *to, int16_t *out, int32_t n) {
  to_samples(out, n, [&](int32_t i) {
    const float share = float(i + 1) / float(n);
    return (1.f - share) * float(from[i]) + share * float(to[i]);
  });
}

} // namespace

bool Replacement::init(const EqPara &eq) {
  eq_para_ = eq;
  return post::init(eq, spare_eq_, post::longest_response);
}

void Replacement::destroy() { EQ_Destroy(&spare_eq_); }

bool Replacement::fetch(const Published<Parameters> &wanted) {
  const uint32_t version = wanted.version();
  if (version == seen_ || phase_ != Phase::steady || !wanted.try_read(next_))
    return false;
  seen_ = version;
  return true;
}

void Replacement::cross_over(const AgcPara &agc_para, const EqPara &eq_para, AgcState &agc) {
  const bool gain_control_stays = (agc_para.swAgcEnable == 0) == (agc.swAgcEnable == 0);
  if (gain_control_stays)
    post::retune(agc_para, agc);
  if (gain_control_stays && same_response(eq_para, eq_para_))
    return;
  spare_agc_ = agc;
  if (agc.swAgcEnable == 0)
    spare_agc_.fGainPrev = 1.f;
  post::retune(agc_para, spare_agc_);
  post::design(eq_para, spare_eq_);
  eq_para_ = eq_para;
  phase_ = Phase::crossing;
  frames_left_ = crossing_frames;
}

void Replacement::change(const AgcPara &agc_para, const EqPara &eq_para, AgcState &agc, EqState &eq) {
  post::retune(agc_para, agc);
  post::design(eq_para, eq);
  eq_para_ = eq_para;
}

void Replacement::run_post(int16_t *io, AgcState &agc, EqState &eq) {
  const int32_t n = eq.swFrameLen;
  int16_t crossed[QV_MAX_FRAME];
  if (phase_ == Phase::crossing) {
    AGC_Process(io, crossed, &spare_agc_);
    EQ_Process(crossed, crossed, &spare_eq_);
  }
  AGC_Process(io, io, &agc);
  EQ_Process(io, io, &eq);
  if (phase_ != Phase::crossing || --frames_left_ > 0)
    return;
  fade(io, crossed, io, n);
  std::swap(agc, spare_agc_);
  std::swap(eq, spare_eq_);
  phase_ = Phase::steady;
}

bool Replacement::shape(int16_t *io, int32_t n) {
  constexpr int16_t silence[QV_MAX_FRAME] = {};
  switch (phase_) {
  case Phase::fade_out:
    fade(io, silence, io, n);
    phase_ = Phase::silent;
    frames_left_ = silent_frames;
    return true;
  case Phase::silent:
    std::fill_n(io, n, int16_t(0));
    if (--frames_left_ == 0)
      phase_ = Phase::fade_in;
    return false;
  case Phase::fade_in:
    fade(silence, io, io, n);
    phase_ = Phase::steady;
    return false;
  default:
    return false;
  }
}

} // namespace qv
