/// @file tuner.h  The search for parameters, and what they owe to each field.
#pragma once

#include <functional>
#include <vector>

#include "tune/evaluator.h"
#include "tune/history.h"
#include "tune/plan.h"

namespace qv::tool::tune {

enum class Method { subplex, population, random };

struct SearchOptions {
  size_t budget = 300;  ///< evaluations of the whole set that the search may ask for; what the log has is free
  double minutes = 1e9; ///< after which nothing more is evaluated; the result then depends on the machine
  uint64_t seed = 1;
  double step = 0.1; ///< first, as a share of each range
  Method method = Method::subplex;
  size_t generation = 0; ///< places of the population at a time; 0: usual_generation()
};

/// Parameters and what the set makes of them.
struct Candidate {
  config::Image image;
  Measured measured;
  double cost;  ///< by the plan; infinite when it has failed
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
/// @param candidate    what was evaluated
/// @param best         of all so far
/// @param evaluations  how many the search has made
using Evaluated = std::function<void(const Candidate &candidate, const Candidate &best, size_t evaluations)>;

/// Searches from `before` as the plan sets it, puts back every changed field that buys nothing, and weighs the others.
/// @throws InputError when the recordings cannot be measured with the parameters that it starts from
Result tune(const Plan &plan, const config::Image &before, Evaluator &evaluator, History &history,
            const SearchOptions &options, const Evaluated &evaluated);

} // namespace qv::tool::tune
