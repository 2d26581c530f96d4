/// @file numbers.h  What is measured, as a number per measure.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "measure/results.h"

namespace qv::tool::tune {

using Json = nlohmann::ordered_json;

/// A number per measure, in the order of measures(): of a recording, or means. NaN where there is none.
using Numbers = std::vector<double>;

/// Speed has none: it says nothing while several run.
Numbers numbers_of(const measure::Results &results);

/// Of {measure: number}, without those that are not there; and back.
Numbers numbers_of(const Json &measures);
Json to_json(const Numbers &numbers);

/// Of the numbers that are there; NaN where no recording has one.
Numbers mean_of(const std::vector<Numbers> &by_recording);

} // namespace qv::tool::tune
