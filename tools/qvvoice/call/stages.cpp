#include "call/stages.h"

#include <algorithm>

namespace qv::tool {
namespace {

int switch_word(const Setup &setup, std::string_view record, std::string_view name) {
  const auto field = std::find_if(config::fields.begin(), config::fields.end(), [&](const config::Field &candidate) {
    return candidate.record == record && candidate.name == name;
  });
  return setup.para[size_t(field->word(setup.rate, 0))];
}

} // namespace

std::vector<Stage> tx_stages(const Setup &setup) {
  const auto word = [&](std::string_view record, std::string_view name) { return switch_word(setup, record, name); };
  const bool canceller = word("aec", "swAecEnable") == 1;
  const bool by_ratio = canceller && word("aec", "swSerSupEnable") == 1;
  return {
      {"noise_reducer", word("tx.anr", "swAnrEnable") != 0},
      {"echo_canceller", canceller},
      {"delay_tracking", canceller && word("aec", "swDelayEstEnable") == 1},
      {"ratio_suppressor", by_ratio},
      {"coherence_suppressor", canceller && !by_ratio && word("aec", "swCohSupEnable") == 1},
      {"gain_control", word("tx.agc", "swAgcEnable") != 0},
      {"equaliser", word("tx.eq", "swEqEnable") != 0},
      {"comfort_noise", word("tx.cng", "swCngEnable") != 0},
  };
}

std::vector<Stage> rx_stages(const Setup &setup) {
  return {
      {"noise_reducer", switch_word(setup, "rx.anr", "swAnrEnable") != 0},
      {"gain_control", switch_word(setup, "rx.agc", "swAgcEnable") != 0},
      {"equaliser", switch_word(setup, "rx.eq", "swEqEnable") != 0},
  };
}

} // namespace qv::tool
