/// @file image_file.h  A parameter file's words from a file.
#pragma once

#include "config/fields.h"
#include "qvvoice/qvvoice.h"

namespace qv::api {

static_assert(QV_VOICE_PARA_WORDS == config::word_count);

/// Reads the first 500 words, little-endian on any host; a null path cannot be opened.
QvVoiceStatus read_image(const char *path, config::Image &image);

} // namespace qv::api
