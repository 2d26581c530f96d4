/// @file set.h  Many recordings, each in a process of its own.
#pragma once

#include <string>
#include <vector>

#include "measure/print.h"
#include "support/progress.h"

namespace qv::tool::measure {

/// One recording at one frame length. A broken recording must not end the others: each job runs `PROGRAM measure FOLDER
/// --json` with these arguments.
struct Job {
  std::string name; ///< of the recording, in the results
  std::string folder;
  std::vector<std::string> arguments;
};

/// Folders below `folder`, itself included, that have scene.toml, mic.wav or ref.wav, sorted by path.
/// @throws InputError when there is none
std::vector<std::string> recording_folders(const std::string &folder);

/// The results in the order of the jobs, and the failed ones with what they said.
/// @param program   the tool
/// @param parallel  processes at a time
Json run_jobs(const std::string &program, const std::vector<Job> &jobs, int parallel, const ProgressFn &progress);

} // namespace qv::tool::measure
