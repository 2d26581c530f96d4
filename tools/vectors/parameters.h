/// @file parameters.h  Parameter images whose words never change with the defaults.
#pragma once

#include <array>
#include <string_view>

#include "config/fields.h"

namespace vectors {

/// Stages that an image switches on, and how.
struct StageSet {
  std::string_view name;
  bool noise_reducer, echo_canceller, gain_control, comfort_noise;
  bool signal_to_echo; ///< suppressor by signal-to-echo ratios with a fixed delay; otherwise coherence, delay tracked
  int half_taps;       ///< of both equalisers; 0 switches them off
  int tail_ms = 0;     ///< of the state-space echo canceller, which then takes the place of the other one; 0: the other
};

inline constexpr std::array stage_sets = std::to_array<StageSet>({
    {"anr", true, false, false, false, false, 0},
    {"aec", false, true, false, false, false, 0},
    {"aec-ser", false, true, false, false, true, 0},
    {"agc", false, false, true, false, false, 0},
    {"eq", false, false, false, false, false, 129},
    {"all-33", true, true, true, true, false, 17},
    {"all-257", true, true, true, true, true, 129},
    {"state-space", true, true, false, false, false, 0, 320},
    // Too short for the call's delays: the bulk delay moves.
    {"state-space-100", false, true, true, false, false, 0, 100},
});

/// @param rate  8000 or 16000, in Hz
qv::config::Image make_image(const StageSet &set, int32_t rate);

} // namespace vectors
