/// @file shard.h  The file of a shard's results: whole or not there, and never of another run.
#pragma once

#include <string>
#include <vector>

#include "fleet/run.h"

namespace qv::tool::fleet {

struct Shard {
  double cpu_seconds = 0;         ///< that measuring took
  std::vector<std::string> lines; ///< [results] a JSON object each, as work() has it; empty: not measured
};

/// Whether a shard's results are there. @throws InputError when they are another run's
bool is_done(const Run &run, size_t shard);

/// Shards that have no results. @throws as is_done()
std::vector<size_t> missing(const Run &run);

/// @throws InputError when a shard is missing, of another run, or not whole
Shard read_shard(const Run &run, size_t shard);

/// Writes it whole or not at all; nothing of it is put aside then.
void write_shard(const Run &run, size_t shard, const Shard &results);

/// Puts the shards with failed recordings aside, so that they are missing. @return how many results have failed
size_t set_aside_failed(const Run &run);

/// What is there before a missing shard is measured: nothing, or what has been put aside without what had failed.
Shard kept(const Run &run, size_t shard);

/// Whether a result says why it has failed.
bool is_failed(const Json &result);

} // namespace qv::tool::fleet
