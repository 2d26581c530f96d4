/// @file recordings.h  What `measure` and `report` are asked for in the same words: recordings, parameters for each
/// rate, outputs of another system.
#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "measure/subject.h"

namespace qv::tool {

/// One recording, by its folder or by its two files, or a set.
struct Recordings {
  std::string folder, mic, ref;
  std::string set; ///< folder of recordings, at any depth

  measure::Subject read_one() const;
};

/// Adds the arguments that fill `recordings`. @return their group, of which exactly one must be given
CLI::Option_group *add_recordings(CLI::App &verb, Recordings &recordings);

/// With the first parameters for the recording's rate; make_setup says what is wrong when there are none.
Setup setup_for(const std::vector<std::string> &para, int rate, int frame_ms);

/// Where the output of a recording lies: DIR/NAME.wav, or DIR/NAME/out.wav.
std::string output_path(const std::string &folder, const std::string &name);

} // namespace qv::tool
