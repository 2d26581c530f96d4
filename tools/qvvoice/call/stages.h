/// @file stages.h  Which stages of a path run with given parameters, and which of the two echo cancellers.
#pragma once

#include <string_view>
#include <vector>

#include "call/setup.h"

namespace qv::tool {

enum class EchoCanceller { off, two_path, state_space };

EchoCanceller echo_canceller(const Setup &setup);

struct Stage {
  std::string_view name; ///< "noise_reducer" and the like
  bool on;               ///< as the library takes the words, with what a stage depends on
};

/// In the order of the path; the parts of the echo canceller follow it.
std::vector<Stage> tx_stages(const Setup &setup);
std::vector<Stage> rx_stages(const Setup &setup);

} // namespace qv::tool
