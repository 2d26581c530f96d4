/// @file search.h  Looking for the lowest place where nothing is known of the slope.
#pragma once

#include <functional>

#include "tune/plan.h"

namespace qv::tool::tune {

/// How high places lie, in their order. Fewer heights than places: the search is to end.
using Heights = std::function<std::vector<double>(const std::vector<Point> &places)>;

/// Nelder and Mead's simplex on subspaces (Rowan, Functional Stability Analysis of Numerical Algorithms, 1990; NLopt's
/// LN_SBPLX) in the unit cube, one place at a time. Where a search has settled, another begins at the best place so
/// far.
/// @param step  length of the first steps along each axis, a half to one and a half times this, either way
/// @param seed  of those
/// @throws what `heights` throws
void search_subplex(const Point &start, double step, uint64_t seed, const Heights &heights);

/// An evolution strategy, a generation of places at a time: normally distributed around the weighted mean of the better
/// half of those before, the step adapted to the path of that mean (Ostermeier, Gawelczyk and Hansen, Step-size
/// adaptation based on non-local use of selection information, 1994). A place beyond the cube's border comes to it.
/// Where it has settled, another begins at the best place so far.
/// @param step        standard deviation of the first generation around the start, along each axis
/// @param generation  places, at least 4
void search_population(const Point &start, double step, uint64_t seed, size_t generation, const Heights &heights);

/// The generation that Hansen's tutorial takes for so many dimensions: 4 + 3 ln n.
size_t usual_generation(size_t dimensions);

/// Places spread evenly over the unit cube, to compare with.
void search_randomly(size_t dimensions, uint64_t seed, const Heights &heights);

} // namespace qv::tool::tune
