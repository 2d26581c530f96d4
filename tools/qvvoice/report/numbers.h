/// @file numbers.h  The measures of a call, as the page's table takes them.
#pragma once

#include <vector>

#include <nlohmann/json.hpp>

#include "measure/results.h"

namespace qv::tool::report {

/// Measures that a page shows: all but those of speed.
std::vector<measure::Measure> shown_measures();

/// [{name, unit, decimals, better, meaning, headline, value, gap, other}]: `gap` says why there is no value, `other` is
/// that of the run beside it, if there is one.
nlohmann::ordered_json numbers(const measure::Results &results, const measure::Results *other);

} // namespace qv::tool::report
