/// @file counter.h  Frame counters that last for years.
#pragma once

#include <cstdint>
#include <limits>

namespace qv {

/// Counts up and stays at the end of the range, which 20 ms frames reach after 497 days.
inline void count_up(int32_t &counter) {
  if (counter < std::numeric_limits<int32_t>::max())
    ++counter;
}

} // namespace qv
