#include "call/call.h"

#include <algorithm>

#include "aec/canceller.h"
#include "anr/reducer.h"
#include "dsp/denormals.h"
#include "qvvoice/call.h"

namespace qv {

namespace {

/// Samples by which an equaliser delays.
int32_t delay_of(const EqPara &eq) { return eq.swEqEnable != 0 ? post::tap_count(eq) / 2 : 0; }

/// The spectral stage whose output the transmit path's gain control gets. With another one its delay or its content
/// jumps; beside the canceller, which starts from the microphone again, the noise reducer is a gain and no more.
enum class Source { microphone, noise_reducer, canceller };

Source source(int32_t cancels, int32_t reduces) {
  return cancels == 1 ? Source::canceller : reduces != 0 ? Source::noise_reducer : Source::microphone;
}

bool transmit_pauses(int32_t cancels, int32_t reduces, const VoicePara &to) {
  return source(cancels, reduces) != source(to.stAec.swAecEnable, to.stAnrTx.swAnrEnable);
}

bool receive_pauses(int32_t reduces, const VoicePara &to) { return (reduces != 0) != (to.stAnrRx.swAnrEnable != 0); }

} // namespace

bool Call::init(const Parameters &parameters, bool replaceable) {
  const VoicePara &para = parameters.block;
  state_ = {};
  state_.swSampleRate = para.swSampleRate;
  state_.swFrameLen = para.swFrameLen;
  AGC_Init(&para.stAgcTx, &state_.stAgcTx);
  AGC_Init(&para.stAgcRx, &state_.stAgcRx);
  const auto taps = [&](const EqPara &eq) { return replaceable ? post::longest_response : post::tap_count(eq); };
  const bool taken[] = {
      take_transforms(rx_fft_, {2 * para.swFrameLen}),
      init_canceller(parameters),
      anr::init(para.stAnrTx, state_.stAnrTx),
      anr::init(para.stAnrRx, state_.stAnrRx),
      post::init(para.stEqTx, state_.stEqTx, taps(para.stEqTx)),
      post::init(para.stEqRx, state_.stEqRx, taps(para.stEqRx)),
      has_state_space_ || post::init(para.stCngTx, state_.stCngTx), // which fills the background itself
      has_state_space_ || post::init(para.stCngAux, state_.stCngAux),
      !replaceable || (tx_replacement_.init(para.stEqTx) && rx_replacement_.init(para.stEqRx)),
  };
  note_latency(para);
  report_ = {};
  tx_last_ = {};
  tx_last_.talk_state = state_.stAec.stDtd.swTalkState;
  rx_last_ = {};
  tx_trace_.write(tx_last_);
  rx_trace_.write(rx_last_);
  ready_ = std::ranges::all_of(taken, [](bool done) { return done; });
  if (!ready_)
    destroy();
  return ready_;
}

/// One of the two cancellers, and only its memory.
bool Call::init_canceller(const Parameters &parameters) {
  const VoicePara &para = parameters.block;
  has_state_space_ = parameters.echo_control.enable == 1;
  if (!has_state_space_)
    return aec::init(para.stAec, state_.stAec, tx_.bank);
  state_.stAec.swAecEnable = para.stAec.swAecEnable;
  return state_space::init(para.swSampleRate, para.swFrameLen, parameters.echo_control, para.stAnrTx.swAnrEnable != 0,
                           noise_.seed, state_space_);
}

void Call::destroy() {
  give_back_transforms(rx_fft_);
  AEC_Destroy(&state_.stAec);
  state_space::destroy(state_space_);
  ANR_Destroy(&state_.stAnrTx);
  ANR_Destroy(&state_.stAnrRx);
  AGC_Destroy(&state_.stAgcTx);
  AGC_Destroy(&state_.stAgcRx);
  EQ_Destroy(&state_.stEqTx);
  EQ_Destroy(&state_.stEqRx);
  CNG_Destroy(&state_.stCngTx);
  CNG_Destroy(&state_.stCngAux);
  tx_replacement_.destroy();
  rx_replacement_.destroy();
  ready_ = false;
}

void Call::note_latency(const VoicePara &para) {
  const bool tx_overlaps = para.stAec.swAecEnable == 1 || para.stAnrTx.swAnrEnable != 0;
  const bool rx_overlaps = para.stAnrRx.swAnrEnable != 0;
  tx_latency_ = (tx_overlaps ? para.swFrameLen : 0) + delay_of(para.stEqTx);
  rx_latency_ = (rx_overlaps ? para.swFrameLen : 0) + delay_of(para.stEqRx);
}

void Call::replace(const Parameters &parameters) {
  wanted_.write(parameters);
  note_latency(parameters.block);
}

bool replaceable(const Parameters &from, const Parameters &to) {
  return from.echo_control.enable == to.echo_control.enable;
}

uint32_t effects_of_change(const Parameters &before, const Parameters &after) {
  const VoicePara &from = before.block, &to = after.block;
  const auto relearns = [&] {
    if (to.stAec.swAecEnable != 1)
      return false;
    if (after.echo_control.enable == 1) // which finds the delay by itself
      return from.stAec.swAecEnable != 1;
    const bool tracked = from.stAec.stDelay.swDelayEstEnable == 1, tracks = to.stAec.stDelay.swDelayEstEnable == 1;
    return from.stAec.swAecEnable != 1 || tracked != tracks ||
           (!tracks && from.stAec.swEchoDelay != to.stAec.swEchoDelay);
  };
  uint32_t effects = 0;
  if (transmit_pauses(from.stAec.swAecEnable, from.stAnrTx.swAnrEnable, to))
    effects |= QV_CALL_TRANSMIT_PAUSES;
  if (receive_pauses(from.stAnrRx.swAnrEnable, to))
    effects |= QV_CALL_RECEIVE_PAUSES;
  if (relearns())
    effects |= QV_CALL_ECHO_RELEARNED;
  return effects;
}

void Call::transmit(const int16_t *mic, const int16_t *ref, int16_t *out) {
  if (tx_replacement_.fetch(wanted_)) {
    const VoicePara &next = tx_replacement_.next().block;
    if (transmit_pauses(state_.stAec.swAecEnable, state_.stAnrTx.swAnrEnable, next)) {
      tx_replacement_.pause();
    } else {
      retune_transmit(tx_replacement_.next());
      tx_replacement_.cross_over(next.stAgcTx, next.stEqTx, state_.stAgcTx);
    }
  }
  run_transmit(mic, ref, out);
  if (tx_replacement_.shape(out, state_.swFrameLen)) {
    const VoicePara &next = tx_replacement_.next().block;
    retune_transmit(tx_replacement_.next());
    tx_replacement_.change(next.stAgcTx, next.stEqTx, state_.stAgcTx, state_.stEqTx);
  }
  publish_transmit();
}

void Call::receive(const int16_t *in, int16_t *out) {
  if (rx_replacement_.fetch(wanted_)) {
    const VoicePara &next = rx_replacement_.next().block;
    if (receive_pauses(state_.stAnrRx.swAnrEnable, next)) {
      rx_replacement_.pause();
    } else {
      anr::retune(next.stAnrRx, state_.stAnrRx);
      rx_replacement_.cross_over(next.stAgcRx, next.stEqRx, state_.stAgcRx);
    }
  }
  run_receive(in, out);
  if (rx_replacement_.shape(out, state_.swFrameLen)) {
    const VoicePara &next = rx_replacement_.next().block;
    anr::retune(next.stAnrRx, state_.stAnrRx);
    rx_replacement_.change(next.stAgcRx, next.stEqRx, state_.stAgcRx, state_.stEqRx);
  }
  publish_receive();
}

void Call::run_transmit(const int16_t *mic, const int16_t *ref, int16_t *out) {
  VoiceProcess &st = state_;
  if (has_state_space_) {
    run_state_space(mic, ref, out);
    tx_replacement_.run_post(out, st.stAgcTx, st.stEqTx);
    return;
  }
  // The noise reducer keeps its denormals: its minima must not fall to zero in silence, where ratios of
  // zero to zero would read as speech. The stages behind it hold nothing that small that matters.
  anr::process(mic, out, st.stAnrTx, tx_);
  const FlushDenormals scope;
  if (st.stAec.swAecEnable == 1)
    aec::process(mic, ref, out, st.stAec, st.stAnrTx.pfBinGain, tx_, report_);
  tx_replacement_.run_post(out, st.stAgcTx, st.stEqTx);
  post::process(out, out, st.stAec.stDtd.swTalkState, st.stAnrTx.stEnhance.pfNoiseBand, st.stAec.stNlp.pfErrBand,
                st.stCngTx, tx_, noise_);
}

/// The noise reducer stands between the canceller's halves: it hears what the filter leaves.
void Call::run_state_space(const int16_t *mic, const int16_t *ref, int16_t *out) {
  if (state_.stAec.swAecEnable != 1)
    return anr::process(mic, out, state_.stAnrTx, tx_);
  {
    const FlushDenormals scope;
    state_space::cancel(mic, ref, out, state_space_);
  }
  anr::follow(out, state_.stAnrTx, tx_);
  const FlushDenormals scope;
  state_space::suppress(state_.stAnrTx.pfBinGain, out, state_space_);
}

void Call::run_receive(const int16_t *in, int16_t *out) {
  anr::process(in, out, state_.stAnrRx, {rx_fft_, tx_.bank});
  rx_replacement_.run_post(out, state_.stAgcRx, state_.stEqRx);
}

void Call::retune_transmit(const Parameters &parameters) {
  const VoicePara &para = parameters.block;
  if (has_state_space_) {
    state_.stAec.swAecEnable = para.stAec.swAecEnable;
    state_space::retune(parameters.echo_control, state_space_);
  } else {
    aec::retune(para.stAec, state_.stAec, tx_.bank);
  }
  anr::retune(para.stAnrTx, state_.stAnrTx);
  post::retune(para.stCngTx, state_.stCngTx);
}

void Call::publish_transmit() {
  const AecState &aec = state_.stAec;
  ++tx_last_.frames;
  tx_last_.agc_gain = state_.stAgcTx.fGainPrev;
  take_snapshot(state_.stAnrTx, tx_last_.noise);
  tx_last_.comfort_noise = state_.stCngTx.swActive;
  tx_last_.talk_state = aec.stDtd.swTalkState;
  tx_last_.echo_cancelled = aec.swAecEnable == 1;
  tx_last_.echo_delay = aec.swEchoDelay;
  tx_last_.leakage = aec.stMdf.fLeak;
  tx_last_.filter_adapted = aec.stMdf.swAdapted;
  tx_last_.report = report_;
  tx_last_.has_state_space = has_state_space_;
  tx_last_.state_space = state_space_.report;
  tx_trace_.write(tx_last_);
}

void Call::publish_receive() {
  ++rx_last_.frames;
  rx_last_.agc_gain = state_.stAgcRx.fGainPrev;
  take_snapshot(state_.stAnrRx, rx_last_.noise);
  rx_trace_.write(rx_last_);
}

} // namespace qv
