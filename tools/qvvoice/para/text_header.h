/// @file text_header.h  What a text says before its first section: it decides how the rest is read.
#pragma once

#include <toml++/toml.h>

#include "para/text_reader.h"

namespace qv::tool::para {

/// Name, rate, frame length and base into `result`, whose image then holds the base or the defaults.
/// @return false after an error that leaves the rate or the base open
bool read_header(const toml::table &root, ReadText &result);

} // namespace qv::tool::para
