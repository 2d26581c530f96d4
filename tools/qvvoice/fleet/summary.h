/// @file summary.h  What is printed at the end of a run.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "fleet/merge.h"

namespace qv::tool::fleet {

/// Means over the results of each rate and frame length, of the numbers that are there.
class Means {
public:
  void add(const Json &result);
  Json json() const; ///< [{"rate", "frame_ms", "results", "measures"}]

private:
  struct Layout {
    size_t results = 0;
    std::map<std::string, std::pair<double, size_t>> sums; ///< and how many numbers
  };
  std::map<std::pair<int, int>, Layout> layouts_; ///< by Hz and ms
};

Json as_json(const Merged &merged, const Means &means);
std::string as_text(const Merged &merged, const Means &means);

} // namespace qv::tool::fleet
