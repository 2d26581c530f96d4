/// @file worker.h  Measures a shard.
#pragma once

#include <functional>

#include "fleet/run.h"

namespace qv::tool::fleet {

/// Makes the result of a recording at one frame length; what it throws becomes that recording's failure.
using Measuring = std::function<Json(const Entry &entry, int frame_ms)>;

/// Reads or makes the recording and runs the library over it.
Measuring measuring(const Run &run);

/// Measures the recordings of a shard one after the other in one process, another one where that is ended by a
/// recording, and writes their results, whole or not at all. Does nothing when they are there.
/// A line says {"run", "shard", "results", "cpu_seconds"}, then there is one per recording and frame length: its
/// result, or {"name", "frame_ms", "failed": why}.
/// @throws InputError when there is no such shard, std::runtime_error when they cannot be written
void work(const Run &run, size_t shard, const Measuring &measuring);

} // namespace qv::tool::fleet
