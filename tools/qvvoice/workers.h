/// @file workers.h  How measure and tune are told what measures the shards of a run.
#pragma once

#include <CLI/CLI.hpp>

#include "fleet/coordinator.h"

namespace qv::tool {

/// Adds the options that fill `workers`, and -j. @param run  the option for the run's folder, which all but -j need
/// @param engines  that --on takes
void add_workers(CLI::App &verb, fleet::Workers &workers, CLI::Option *run,
                 const std::map<std::string, fleet::Engine> &engines);

} // namespace qv::tool
