/// @file bands.h  The band groups of the echo canceller in Hz.
#pragma once

#include <cstdint>

namespace qv::tool::para {

/// Frequency of a band's centre, Hz. @param band  0 .. bands - 1, fractions lie between two centres
double band_hz(int32_t rate, double band);

struct HzRange {
  double low, high;
};

/// The four bands of a group, from half a band below the first centre to half a band above the last.
HzRange group_range(int32_t rate, int32_t group);

} // namespace qv::tool::para
