/// @file settings.h  aec.args of a configuration file into settings.
#pragma once

#include "canceller.h"

struct spa_dict;

namespace qv::pipewire {

/// @param args  null, or the strings that the module makes of `aec.args`
/// @throws std::invalid_argument  names the argument, what was found and what would be right
Settings read_settings(const spa_dict *args);

} // namespace qv::pipewire
