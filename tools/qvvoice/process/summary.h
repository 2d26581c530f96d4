/// @file summary.h  What a run did, for people and for machines.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "process/run_call.h"

namespace qv::tool::process {

/// Everything that the user may want to know afterwards; notes, hints, rate, frame, parameters, stages, speed, levels.
/// A level is null for digital silence.
nlohmann::ordered_json summarise(const Options &options, const Setup &setup, const Inputs &inputs,
                                 const Results &results, const Account &account);

/// The same as a few lines of text.
std::string as_text(const nlohmann::ordered_json &summary);

} // namespace qv::tool::process
