#include "call/stages.h"

#include "para/words.h"

namespace qv::tool {

std::vector<Stage> tx_stages(const Setup &setup) {
  const para::Values values(setup.para);
  const bool canceller = values.on("aec.enable");
  const bool state_space = canceller && values.on("echo_control.enable"), adaptive = canceller && !state_space;
  const bool by_ratio = adaptive && values.on("aec.suppressor.echo_ratio");
  return {
      {"noise_reducer", values.on("tx.anr.enable")},
      {"echo_canceller", canceller},
      {"state_space_canceller", state_space},
      {"delay_tracking", adaptive && values.on("aec.track_delay")},
      {"ratio_suppressor", by_ratio},
      {"coherence_suppressor", adaptive && !by_ratio && values.on("aec.suppressor.coherence")},
      {"gain_control", values.on("tx.agc.enable")},
      {"equaliser", values.on("tx.eq.enable")},
      {"comfort_noise", values.on("tx.cng.enable") && !state_space},
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
