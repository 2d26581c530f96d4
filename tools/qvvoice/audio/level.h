/// @file level.h  How loud a recording is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace qv::tool {

/// RMS in dBFS: 0 is a full-scale square wave. Minus infinity for digital silence or nothing.
double level_dbfs(std::span<const int16_t> samples);

/// Samples at either end of the 16-bit range.
size_t count_clipped(std::span<const int16_t> samples);

} // namespace qv::tool
