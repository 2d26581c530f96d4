/// @file server.h  One page on the loopback address.
#pragma once

#include <functional>
#include <string>

namespace qv::tool::tuner {

/// Serves the page until the process ends, to this machine alone.
/// @param port    0: any that is free
/// @param opened  called with the address once it answers
/// @throws InputError when the port is taken
void serve(const std::string &page, int port, const std::function<void(const std::string &url)> &opened);

} // namespace qv::tool::tuner
