/// @file check.h  What is wrong with the values of a parameter file, and what it does to the sound.
#pragma once

#include "para/finding.h"
#include "para/words.h"

namespace qv::tool::para {

/// Every finding names the key, what was found, the reason, and the consequence in the sound.
Findings check(const Image &image);

} // namespace qv::tool::para
