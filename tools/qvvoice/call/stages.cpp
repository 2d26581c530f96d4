#include "call/stages.h"

#include "para/words.h"

namespace qv::tool {

EchoCanceller echo_canceller(const Setup &setup) {
  const para::Values values(setup.para);
  return !values.on("aec.enable")           ? EchoCanceller::off
         : values.on("echo_control.enable") ? EchoCanceller::state_space
                                            : EchoCanceller::two_path;
}

std::vector<Stage> tx_stages(const Setup &setup) {
  const para::Values values(setup.para);
  const Stage reducer = {"noise_reducer", values.on("tx.anr.enable")},
              gain = {"gain_control", values.on("tx.agc.enable")}, equaliser = {"equaliser", values.on("tx.eq.enable")};
  const bool canceller = values.on("aec.enable");
  if (values.on("echo_control.enable")) // which fills the background itself
    return {{"state_space_echo_canceller", canceller}, reducer, gain, equaliser};
  const bool by_ratio = canceller && values.on("aec.suppressor.echo_ratio");
  return {
      reducer,
      {"echo_canceller", canceller},
      {"delay_tracking", canceller && values.on("aec.track_delay")},
      {"ratio_suppressor", by_ratio},
      {"coherence_suppressor", canceller && !by_ratio && values.on("aec.suppressor.coherence")},
      gain,
      equaliser,
      {"comfort_noise", values.on("tx.cng.enable")},
  };
}

std::vector<Stage> rx_stages(const Setup &setup) {
  const para::Values values(setup.para);
  return {
      {"noise_reducer", values.on("rx.anr.enable")},
      {"gain_control", values.on("rx.agc.enable")},
      {"equaliser", values.on("rx.eq.enable")},
  };
}

} // namespace qv::tool
