/// @file run.h  A run folder: a set, what it is measured with, and the shards that the work is cut into.
///
/// run.json says all that the results depend on, set.jsonl has a recording a line, shards/ a file of results per shard,
/// whole or not there. Whoever sees the folder can measure a shard. The results of a recording come together, one for
/// each of the parameters that it is measured with.
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
  std::vector<Setup> setups;  ///< equally many for each rate; a recording is measured with all those of its rate
  std::vector<size_t> shards; ///< [shards + 1] first result of each, and how many results there are

  size_t shard_count() const { return shards.size() - 1; }
  size_t results_of(size_t shard) const { return shards[shard + 1] - shards[shard]; }
  size_t per_recording() const; ///< results
  std::string shard_path(size_t shard) const;

  /// @param nth  of those of this rate
  /// @throws InputError when there is none for it
  const Setup &setup(int rate, size_t nth) const;
};

int frame_ms_of(const Setup &setup);

/// Makes a run folder, or takes one up.
/// @param shard_seconds  work of a shard, about so many seconds of a core; a run that is taken up keeps its shards
/// @throws InputError when the folder has another run: another library, set or other parameters; it names which
Run take_up(const std::string &folder, const std::vector<Entry> &set, const std::vector<Setup> &setups,
            double shard_seconds);

/// A run folder as it is. @throws InputError when it is none, or this library would give other results
Run open_run(const std::string &folder);

/// The recordings of a shard's results, those at its ends among them. @throws InputError when set.jsonl is not that of
/// the run
std::vector<Entry> recordings_of(const Run &run, size_t shard);

/// About what measuring a set takes, in seconds of a core. @param results  of each recording
double cost_of(const std::vector<Entry> &set, size_t results);

} // namespace qv::tool::fleet
