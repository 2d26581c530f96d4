/// @file worker.h  Measures a shard.
#pragma once

#include <functional>

#include "fleet/run.h"

namespace qv::tool::fleet {

/// Makes a result of a recording, with the nth parameters for its rate; what it throws becomes that result's failure.
using Measuring = std::function<Json(const Entry &entry, size_t nth)>;

/// Reads or makes the recording, once for all its results, and runs the library over it.
Measuring measuring(const Run &run);

/// Measures a shard's results one after the other in one process, another one where that is ended by a recording, and
/// writes them, whole or not at all. Does nothing when they are there; of a shard that set_aside_failed() has put aside
/// only what had failed is measured.
/// A line says {"run", "shard", "results", "cpu_seconds"}, then there is one per result, or {"name", "frame_ms",
/// "failed": why}.
/// @throws InputError when there is no such shard, std::runtime_error when they cannot be written
void work(const Run &run, size_t shard, const Measuring &measuring);

} // namespace qv::tool::fleet
