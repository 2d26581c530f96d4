/// @file check.h  What is wrong with the values of a parameter file, and what it does to the sound.
#pragma once

#include <optional>

#include "para/para_file.h"

namespace qv::tool::inspect {

/// Every finding names the key, what was found, the reason, and the consequence in the sound.
para::Findings check(const para::Image &image);

/// What check() finds in the file, with the lines of its text, after what reading it found.
/// @param rate  Hz that the file should be for, if any
para::Findings check_file(const para::ParaFile &file, std::optional<int32_t> rate = {});

} // namespace qv::tool::inspect
