/// @file progress_fn.h  Who wants to know how far a long step has come.
#pragma once

#include <cstddef>
#include <functional>

namespace qv::tool {

/// Called with how much is done of how much, 0 when that is not known; empty where nobody looks.
using ProgressFn = std::function<void(size_t done, size_t total)>;

} // namespace qv::tool
