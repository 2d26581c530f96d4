/// @file merge.h  The results of all shards as one.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "fleet/run.h"

namespace qv::tool::fleet {

/// A recording without results.
struct Failed {
  std::string name, message;
};

struct Merged {
  std::string path; ///< of RUN/results.jsonl: a line per recording and frame length in the order of the set
  size_t results = 0;
  std::vector<Failed> failed;
  double cpu_seconds = 0, seconds = 0; ///< that the workers took, and of sound
};

/// Writes results.jsonl, whole or not at all, with the same bytes whoever measured what.
/// @param each  called with every line that is a result
/// @throws as read_shard()
Merged merge(const Run &run, const std::function<void(const Json &result)> &each);

} // namespace qv::tool::fleet
