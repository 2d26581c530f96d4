/// @file verbs.h  One function per verb, which adds its subcommand. Its callback does the work.
///
/// Results go to standard output, progress and messages to standard error. A callback throws InputError for
/// bad input (status 2) and CLI::RuntimeError(1) after it has checked something and found it wanting.
#pragma once

#include <CLI/CLI.hpp>

namespace qv::tool {

void add_process(CLI::App &app); // cmd_process.cpp, and so on

} // namespace qv::tool
