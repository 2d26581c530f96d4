/// @file usage.h  What is said of a command line that cannot be understood.
#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace qv::tool {

/// The error, and the verb, option or value that was probably meant.
/// @param app  after it has thrown the error
std::string usage_message(const CLI::App &app, const CLI::ParseError &error);

} // namespace qv::tool
