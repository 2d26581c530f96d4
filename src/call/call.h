/// @file call.h  One call at work: its two frame pipelines, and everything they share with nobody else.
///
/// Transmit and receive may run on two threads: each has transforms of its own, and of the records each touches its own
/// stages. The filter bank and, between replacements, the parameters are only read.
#pragma once

#include "call/published.h"
#include "call/replacement.h"
#include "call/snapshot.h"
#include "config/parameters.h"
#include "dsp/services.h"
#include "post/stages.h"
#include "qvvoice/api/process.h"
#include "state_space/canceller.h"

namespace qv {

struct Latency {
  int32_t tx, rx; ///< samples, input to output of the frame calls
};

class Call {
public:
  /// @param state  every stage's record, the caller's: the entry points of the process export theirs
  /// @param tx     the transmit direction's services, ready before init(); the filter bank serves both directions
  constexpr Call(VoiceProcess &state, const Services &tx, post::NoiseSource noise)
      : state_(state), tx_(tx), noise_(noise) {}
  Call(const Call &) = delete;
  Call &operator=(const Call &) = delete;

  /// Takes all memory and starts every stage. Nothing is held before: destroy() first.
  /// @param replaceable  with room for any parameters of the same layout
  /// @return whether memory was there; without, nothing is held
  bool init(const Parameters &parameters, bool replaceable);
  void destroy();
  bool ready() const { return ready_; }

  /// One frame each, [N] samples; buffers as QV_VOICE_ProcessTx and QV_VOICE_ProcessRx have them.
  void transmit(const int16_t *mic, const int16_t *ref, int16_t *out);
  void receive(const int16_t *in, int16_t *out);

  /// Hands over parameters for the same layout; each direction takes them up between two frames of its own. By one
  /// thread at a time, of a call that was initialised as replaceable.
  void replace(const Parameters &parameters);

  /// With the parameters last given; from any thread.
  Latency latency() const { return {tx_latency_.load(), rx_latency_.load()}; }

  QvVoiceTrace trace() const { return make_trace(tx_trace_.read(), rx_trace_.read()); }
  bool cancels_echo() const { return state_.stAec.swAecEnable == 1; }
  int32_t frame_len() const { return state_.swFrameLen; }

private:
  bool init_canceller(const Parameters &parameters);
  void run_transmit(const int16_t *mic, const int16_t *ref, int16_t *out);
  void run_state_space(const int16_t *mic, const int16_t *ref, int16_t *out);
  void run_receive(const int16_t *in, int16_t *out);
  void retune_transmit(const Parameters &parameters);
  void note_latency(const VoicePara &para);
  void publish_transmit();
  void publish_receive();

  VoiceProcess &state_;
  Services tx_;
  FftState rx_fft_{};
  post::NoiseSource noise_;
  bool ready_ = false;

  bool has_state_space_ = false; ///< the state-space canceller stands in the other one's place
  state_space::Canceller state_space_;
  aec::FrameReport report_;
  TransmitSnapshot tx_last_;
  ReceiveSnapshot rx_last_;
  Published<TransmitSnapshot> tx_trace_;
  Published<ReceiveSnapshot> rx_trace_;

  std::atomic<int32_t> tx_latency_{0}, rx_latency_{0};
  Published<Parameters> wanted_;
  Replacement tx_replacement_, rx_replacement_;
};

/// Whether a running call can go over: what the state-space canceller needs is taken when the call is made, or not.
bool replaceable(const Parameters &from, const Parameters &to);

/// What going over does beyond retuning (qvvoice/call.h).
uint32_t effects_of_change(const Parameters &from, const Parameters &to);

} // namespace qv
