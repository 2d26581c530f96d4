/// @file tuner.h  The search for parameters, and what they owe to each field.
#pragma once

#include <functional>
#include <vector>

#include "tune/evaluator.h"
#include "tune/history.h"
#include "tune/plan.h"

namespace qv::tool::tune {

enum class Method { subplex, random };

struct SearchOptions {
  size_t budget = 300;  ///< evaluations of the whole set that the search may ask for; what the log has is free
  double minutes = 1e9; ///< after which nothing more is evaluated; the result then depends on the machine
  uint64_t seed = 1;
  double step = 0.1; ///< first, as a share of each range
  Method method = Method::subplex;
};

/// Parameters and what the set makes of them.
struct Candidate {
  config::Image image;
  Numbers means;
  double cost;  ///< by the plan
  int findings; ///< errors and warnings of inspect::check()

  /// What the search goes by. A finding outweighs every want: the result is to be a file that its reader would not
  /// doubt.
  double rank() const { return cost + 1000 * findings; }
};

/// A field that the result has changed.
struct Effect {
  const config::Field *field;
  double lost;           ///< points by which the cost rises when the field goes back
  config::Image image;   ///< then
  Numbers with, without; ///< means that its text compares, of the recordings tuned on
  bool at_bound;         ///< some element is at an end of a move's range
};

struct Result {
  Candidate before, after;
  std::vector<Effect> effects; ///< what matters most first
  std::vector<double> course;  ///< lowest cost after each evaluation of the search
};

/// Called after each evaluation of the search that the log did not have, and at its start.
/// @param improved     `best` is better than all before it
/// @param evaluations  how many the search has made
using Evaluated = std::function<void(const Candidate &best, bool improved, size_t evaluations)>;

/// Searches from `before` as the plan sets it, puts back every changed field that buys nothing, and weighs the others.
Result tune(const Plan &plan, const config::Image &before, Evaluator &evaluator, History &history,
            const SearchOptions &options, const Evaluated &evaluated);

/// Of the numbers that are there; NaN where no recording has one.
Numbers mean_of(const std::vector<Numbers> &by_recording);

} // namespace qv::tool::tune
