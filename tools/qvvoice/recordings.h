/// @file recordings.h  How diagnose, measure and report are told which recordings to look at.
#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "measure/subject.h"

namespace qv::tool {

/// One recording, by its folder, its two files or one file with both, or a set.
struct Recordings {
  std::string folder, mic, ref, stereo;
  std::string set;   ///< folder of recordings, at any depth, or a manifest
  bool sets = false; ///< whether the verb takes one

  /// @throws InputError unless one recording or one set is named, and in one way
  void check() const;

  /// Converted, unless it is a folder, as `process` does: to 8000 Hz if the file has no more, else to 16000 Hz.
  measure::Subject read_one() const;
};

/// Adds the arguments that fill `recordings`.
/// @param sets  whether --set is among them
void add_recordings(CLI::App &verb, Recordings &recordings, bool sets);

/// Where the output of a recording lies: DIR/NAME.wav, or DIR/NAME/out.wav.
std::string output_path(const std::string &folder, const std::string &name);

} // namespace qv::tool
