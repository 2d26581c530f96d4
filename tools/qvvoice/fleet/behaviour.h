/// @file behaviour.h  What tells a library from another one: what it does.
#pragma once

#include <string>
#include <vector>

#include "call/setup.h"

namespace qv::tool::fleet {

/// A checksum of all measures of a call of 6 s of noise, made here, with the first of these parameters for each rate
/// and frame length. Every build of a library gives the same; a library or measures that have changed seldom do,
/// whatever version they bear.
std::string behaviour(const std::vector<Setup> &setups);

} // namespace qv::tool::fleet
