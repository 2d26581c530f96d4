/// @file search.h  Looking for the lowest cost where nothing is known of its slope.
#pragma once

#include <Eigen/Dense>

#include "scene/random.h"
#include "tune/plan.h"

namespace qv::tool::tune {

/// Covariance matrix adaptation evolution strategy (Hansen, The CMA Evolution Strategy: A Tutorial, 2016) with its
/// default settings, in the unit cube: what falls outside comes to the border before it is evaluated and learnt from.
class EvolutionStrategy {
public:
  /// @param step  standard deviation of the first generation
  EvolutionStrategy(const Point &start, double step, uint64_t seed);

  std::vector<Point> ask(); ///< the next generation
  /// @param costs  of the points that ask() gave, in their order
  void tell(const std::vector<Point> &points, const std::vector<double> &costs);

private:
  size_t generation_size_;
  scene::Random random_;
  Eigen::VectorXd mean_, step_path_, covariance_path_, scales_; ///< scales: of the axes
  Eigen::MatrixXd covariance_, axes_;
  Eigen::VectorXd weights_;
  double step_, mass_; ///< mass: variance effective selection mass
  int generations_ = 0;
};

/// Points spread evenly over the unit cube, to compare with.
class RandomSearch {
public:
  RandomSearch(size_t dimensions, uint64_t seed) : dimensions_(dimensions), random_(seed) {}
  std::vector<Point> ask();

private:
  size_t dimensions_;
  scene::Random random_;
};

} // namespace qv::tool::tune
