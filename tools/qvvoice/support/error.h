/// @file error.h  What the tool says when the user's input is wrong.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

#include <fmt/format.h>

namespace qv::tool {

/// What the user gave is wrong. The message names the file and the field or option, what was found and
/// what would be right; main prints it and exits with status 2.
struct InputError : std::runtime_error {
  explicit InputError(const std::string &message) : std::runtime_error(message) {}

  template <class... Args>
  requires(sizeof...(Args) > 0) explicit InputError(fmt::format_string<Args...> format, Args &&...args)
      : std::runtime_error(fmt::format(format, std::forward<Args>(args)...)) {}
};

} // namespace qv::tool
