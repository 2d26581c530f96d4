/// @file child.h  Another program, run to its end.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace qv::tool {

struct ChildResult {
  std::string output;   ///< what it wrote to standard output
  std::string messages; ///< what it wrote to standard error
  int status;           ///< exit status; 128 + signal when a signal ended it
};

/// Runs a program with these arguments, standard input empty, and waits. Several threads may run children.
/// @param arguments  the program first, looked up in PATH unless it holds a slash
/// @param limit      after which it is killed
/// @throws std::system_error when it cannot be started, with std::errc::no_such_file_or_directory when it is not there;
///         with std::errc::timed_out when it has been killed
ChildResult run_child(const std::vector<std::string> &arguments, std::optional<std::chrono::milliseconds> limit = {});

} // namespace qv::tool
