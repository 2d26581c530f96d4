/// @file parameters.h  How every verb is told which parameters to run with.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "call/setup.h"

namespace qv::tool {

/// Type of every option that takes one of these, as help shows it.
inline constexpr const char *parameters_type = "PRESET|FILE";

/// An option `--para`, also called `--preset`, for the name of a preset, a text file or a packed file.
/// @param meaning  for the help, with the default in brackets
/// @param also     another name of the option, with its dashes
CLI::Option *add_parameters(CLI::App &verb, std::optional<std::string> &name, const std::string &meaning,
                            const std::string &also = "");

/// The same for several, of which the first for the rate of a recording is taken.
CLI::Option *add_parameters(CLI::App &verb, std::vector<std::string> &names, const std::string &meaning);

/// With the first parameters for the recording's rate; make_setup says what is wrong when there are none.
Setup setup_for(const std::vector<std::string> &para, int rate, int frame_ms);

} // namespace qv::tool
