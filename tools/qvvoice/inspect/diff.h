/// @file diff.h  What differs between two parameter files.
#pragma once

#include <string>
#include <vector>

#include "para/words.h"

namespace qv::tool::inspect {

struct Difference {
  std::string key;     ///< "tx.agc.knee_low_db", "raw.79"
  std::string a, b;    ///< values as in the text form; an equaliser's response in dB; "-" when one file has none
  std::string unit;    ///< of both values
  std::string meaning; ///< of the key
};

/// In the order of the field table; empty when all 500 words are the same.
std::vector<Difference> diff(const para::Image &a, const para::Image &b);

} // namespace qv::tool::inspect
