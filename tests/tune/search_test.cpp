// The evolution strategy on functions whose lowest place is known.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tune/search.h"

namespace qv::tool::tune {
namespace {

constexpr size_t dimensions = 8;

/// A narrow valley that lies across the axes; 0 at 0.6 everywhere.
double valley(const Point &x) {
  double sum = 0;
  for (size_t i = 0; i < dimensions; ++i) {
    double along = 0;
    for (size_t j = 0; j < dimensions; ++j)
      along += std::cos(double(i * (2 * j + 1)) * std::numbers::pi / (2 * dimensions)) * (x[j] - 0.6);
    sum += std::pow(10, double(i) / 3) * along * along;
  }
  return sum;
}

/// Lowest beyond the cube's corner.
double beyond(const Point &x) {
  double sum = 0;
  for (const double value : x)
    sum += (value - 1.3) * (value - 1.3);
  return sum;
}

template <class Function> double lowest_of(const Function &function, uint64_t seed, size_t budget) {
  EvolutionStrategy strategy(Point(dimensions, 0.2), 0.2, seed);
  double lowest = 1e9;
  for (size_t done = 0; done < budget;) {
    const std::vector<Point> points = strategy.ask();
    std::vector<double> costs;
    for (const Point &point : points) {
      EXPECT_TRUE(std::ranges::all_of(point, [](double value) { return value >= 0 && value <= 1; }));
      lowest = std::min(lowest, costs.emplace_back(function(point)));
    }
    strategy.tell(points, costs);
    done += points.size();
  }
  return lowest;
}

TEST(EvolutionStrategy, finds_the_lowest_place) {
  for (const uint64_t seed : {1, 2, 3}) {
    EXPECT_LT(lowest_of(valley, seed, 3000), 1e-6) << seed;
    EXPECT_NEAR(lowest_of(beyond, seed, 2000), dimensions * 0.09, 1e-3) << "at the border";
  }
}

TEST(EvolutionStrategy, does_better_than_chance) {
  for (const uint64_t seed : {1, 2, 3}) {
    RandomSearch random(dimensions, seed);
    double lowest = 1e9;
    for (int i = 0; i < 1000; ++i)
      lowest = std::min(lowest, valley(random.ask()[0]));
    EXPECT_LT(lowest_of(valley, seed, 1000), 0.1 * lowest);
  }
}

} // namespace
} // namespace qv::tool::tune
