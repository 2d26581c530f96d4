/// @file tuning.h  What a parameter file says of the state-space echo canceller.
#pragma once

#include <cstdint>

namespace qv::state_space {

struct Tuning {
  int32_t enable;   ///< 1: this canceller takes the place of the other one while that is enabled
  float tail_ms;    ///< length of the echo path behind its bulk delay, ms, 100..320
  float depth_db;   ///< attenuation of what is left of the echo while only the far end talks, dB, 20..80
  float care;       ///< 0..1: 0 removes all echo at the talker's cost, 1 keeps the talker at the price of some echo
  float background; ///< 0..1: share of the room's background that is heard in place of the echo
};

} // namespace qv::state_space
