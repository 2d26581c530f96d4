/// @file parameters.h  All that a parameter file says.
#pragma once

#include "qvvoice/config/para.h"
#include "state_space/tuning.h"

namespace qv {

struct Parameters {
  VoicePara block{};                  ///< of the stages that every file speaks of
  state_space::Tuning echo_control{}; ///< zero throughout where the file does not speak of it
};

} // namespace qv
