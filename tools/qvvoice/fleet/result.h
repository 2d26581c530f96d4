/// @file result.h  What is kept of a recording.
#pragma once

#include <map>
#include <string>

#include "measure/print.h"

namespace qv::tool::fleet {

using Json = measure::Json;

/// Runs the library over a recording: {"name", "rate", "frame_ms", "seconds", "tags", "noise", "measures", "never"}.
/// Its measures are the numbers that are there, without those of speed, which depend on the machine; never: the keys of
/// those that were waited for in vain. The same bytes on every machine.
Json result_of(const measure::Known &known, const std::map<std::string, std::string> &tags, const Setup &setup);

} // namespace qv::tool::fleet
