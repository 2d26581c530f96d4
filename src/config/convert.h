/// @file convert.h  From a parameter file's words to the block that the stages start from.
#pragma once

#include <cstdint>

#include "qvvoice/config/para.h"

namespace qv::config {

/// VOICE_SetPara_1 into a block of one's own. @return false, and nothing written, where that returns 2
bool convert(const int16_t *file, int32_t rate, int32_t frame_len, VoicePara &block);

} // namespace qv::config
