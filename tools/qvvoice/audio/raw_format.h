/// @file raw_format.h  What libsndfile is told about a file without a header.
#pragma once

#include <sndfile.h>

#include "audio/audio.h"
#include "audio/container.h"

namespace qv::tool {

/// @throws InputError unless that many bytes are a whole number of samples in every channel
void check_whole(const RawFormat &raw, const std::string &path, uint64_t bytes);

/// @throws InputError for an encoding that is not known, or a file, not a pipe, that holds no whole number of samples
SF_INFO raw_info(const RawFormat &raw, const InputFile &file);

} // namespace qv::tool
