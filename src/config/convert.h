/// @file convert.h  From a parameter file's words to the records that the stages start from.
#pragma once

#include <cstdint>

#include "config/parameters.h"

namespace qv::config {

/// VOICE_SetPara_1 into parameters of one's own. @return false, and nothing written, where that returns 2
bool convert(const int16_t *file, int32_t rate, int32_t frame_len, Parameters &parameters);

/// What the image that VOICE_SetPara_1 converted last says beside g_stVoicePara; kept as long.
extern state_space::Tuning process_echo_control;

} // namespace qv::config
