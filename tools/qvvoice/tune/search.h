/// @file search.h  Looking for the lowest place where nothing is known of the slope.
#pragma once

#include <functional>
#include <optional>

#include "tune/plan.h"

namespace qv::tool::tune {

/// How high a place lies; nothing: the search is to end.
using Height = std::function<std::optional<double>(const Point &place)>;

/// Nelder and Mead's simplex on subspaces (Rowan, Functional Stability Analysis of Numerical Algorithms, 1990; NLopt's
/// LN_SBPLX) in the unit cube. Where a search has settled, another begins at the best place so far.
/// @param step  length of the first steps along each axis, a half to one and a half times this, either way
/// @param seed  of those
/// @throws what `height` throws
void search_subplex(const Point &start, double step, uint64_t seed, const Height &height);

/// Places spread evenly over the unit cube, to compare with.
void search_randomly(size_t dimensions, uint64_t seed, const Height &height);

} // namespace qv::tool::tune
