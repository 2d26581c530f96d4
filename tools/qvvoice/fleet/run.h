/// @file run.h  A run folder: a set, what it is measured with, and the shards that the work is cut into.
///
/// run.json says all that the results depend on, set.jsonl has a recording a line, shards/ a file of results per shard,
/// whole or not there. Whoever sees the folder can measure a shard.
#pragma once

#include <string>
#include <vector>

#include "call/setup.h"
#include "sets/set.h"

namespace qv::tool::fleet {

using sets::Entry;
using sets::Json;

struct Run {
  std::string folder;
  std::string id;             ///< told by every result: a checksum of run.json
  std::vector<Setup> setups;  ///< one for each rate and frame length
  std::vector<int> frame_ms;  ///< each recording is measured at each
  std::vector<size_t> shards; ///< [shards + 1] first recording of each, and how many recordings there are

  size_t shard_count() const { return shards.size() - 1; }
  size_t recordings() const { return shards.back(); }
  size_t results_of(size_t shard) const { return (shards[shard + 1] - shards[shard]) * frame_ms.size(); }
  std::string shard_path(size_t shard) const;
  const Setup &setup(int rate, int frame_ms) const;
};

/// Makes a run folder, or takes one up.
/// @param shard_seconds  work of a shard, about so many seconds of a core; a run that is taken up keeps its shards
/// @throws InputError when the folder has another run: another library, set or other parameters; it names which
Run take_up(const std::string &folder, const std::vector<Entry> &set, std::vector<Setup> setups,
            const std::vector<int> &frame_ms, double shard_seconds);

/// A run folder as it is. @throws InputError when it is none, or this library would give other results
Run open_run(const std::string &folder);

/// The recordings of a shard. @throws InputError when set.jsonl is not that of the run
std::vector<Entry> recordings_of(const Run &run, size_t shard);

/// About what measuring takes, in seconds of a core.
double cost_of(const Entry &entry);

/// Whether a shard's results are there, whole and of this run. @throws InputError when they are another run's
bool is_done(const Run &run, size_t shard);

} // namespace qv::tool::fleet
