/// @file run_call.h  A call through the library, from its inputs to its results.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "call/streams.h"
#include "process/inputs.h"
#include "process/result.h"

namespace qv::tool::process {

struct Results {
  std::optional<Result> sent, played;
  std::optional<OutputFile> trace;

  void commit(); ///< @throws std::runtime_error when the disk refuses
};

/// What a run was like.
struct Account {
  Latency latency = {};
  size_t frames = 0;
  double busy_seconds = 0, worst_seconds = 0; ///< that the library took for all frames, and for one
  std::vector<std::string> hints;             ///< what qvvoice diagnose could tell
};

/// @throws InputError when an input turns out to be unusable, std::runtime_error when a result cannot be written
Account run_call(const Setup &setup, Inputs &inputs, Results &results, bool compensate);

} // namespace qv::tool::process
