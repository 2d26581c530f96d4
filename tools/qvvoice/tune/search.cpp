#include "tune/search.h"

#include <cmath>
#include <exception>
#include <limits>
#include <memory>

#include <nlopt.h>

#include "scene/random.h"

namespace qv::tool::tune {
namespace {

struct Run {
  const Heights &heights;
  nlopt_opt search;
  Point best_place;
  double best = std::numeric_limits<double>::infinity();
  bool ended = false;
  std::exception_ptr thrown = nullptr;
};

/// Exceptions wait until NLopt, which is C, has returned.
double height_of(unsigned count, const double *place, double *, void *data) {
  Run &run = *static_cast<Run *>(data);
  const Point point(place, place + count);
  std::vector<double> height;
  try {
    height = run.heights({point});
  } catch (...) {
    run.thrown = std::current_exception();
  }
  if (height.empty()) {
    run.ended = true;
    nlopt_force_stop(run.search);
    return std::numeric_limits<double>::infinity();
  }
  if (height[0] < run.best) {
    run.best = height[0];
    run.best_place = point;
  }
  return height[0];
}

} // namespace

void search_subplex(const Point &start, double step, uint64_t seed, const Heights &heights) {
  const std::unique_ptr<nlopt_opt_s, decltype(&nlopt_destroy)> search(
      nlopt_create(NLOPT_LN_SBPLX, unsigned(start.size())), nlopt_destroy);
  scene::Random random(seed);
  Run run{heights, search.get(), start};
  nlopt_set_lower_bounds1(search.get(), 0);
  nlopt_set_upper_bounds1(search.get(), 1);
  nlopt_set_min_objective(search.get(), height_of, &run);
  while (!run.ended) {
    Point first_steps(start.size());
    for (double &one : first_steps)
      one = std::copysign(step * (0.5 + random.uniform()), random.uniform() - 0.5);
    nlopt_set_initial_step(search.get(), first_steps.data());
    Point place = run.best_place;
    double found;
    nlopt_optimize(search.get(), place.data(), &found);
    nlopt_set_force_stop(search.get(), 0);
  }
  if (run.thrown)
    std::rethrow_exception(run.thrown);
}

void search_randomly(size_t dimensions, uint64_t seed, const Heights &heights) {
  scene::Random random(seed);
  Point place(dimensions);
  do
    for (double &value : place)
      value = random.uniform();
  while (!heights({place}).empty());
}

} // namespace qv::tool::tune
