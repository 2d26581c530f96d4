// The search on functions whose lowest place is known.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <stdexcept>

#include "tune/search.h"

namespace qv::tool::tune {
namespace {

constexpr size_t dimensions = 8;
const Point start(dimensions, 0.2);

/// A valley that lies across the axes; 0 at 0.6 everywhere.
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

/// In steps, as fields of whole numbers make them.
double stairs(const Point &x) {
  Point steps;
  for (const double value : x)
    steps.push_back(std::round(20 * value) / 20);
  return valley(steps);
}

/// A height that ends the search after `budget` places, and keeps the lowest.
struct Budget {
  double (*function)(const Point &);
  size_t budget;
  double lowest = 1e9;
  std::set<Point> places = {};

  Height height() {
    return [this](const Point &place) -> std::optional<double> {
      if (budget-- == 0)
        return {};
      EXPECT_TRUE(std::ranges::all_of(place, [](double value) { return value >= 0 && value <= 1; }));
      places.insert(place);
      const double found = function(place);
      lowest = std::min(lowest, found);
      return found;
    };
  }
};

TEST(Search, finds_the_lowest_place_and_goes_on_where_it_has_settled) {
  for (const uint64_t seed : {1, 2, 3}) {
    Budget narrow{valley, 3000}, border{beyond, 1000}, coarse{stairs, 3000}, chance{valley, 3000};
    search_subplex(start, 0.2, seed, narrow.height());
    search_subplex(start, 0.2, seed, border.height());
    search_subplex(start, 0.2, seed, coarse.height());
    search_randomly(dimensions, seed, chance.height());
    EXPECT_LT(narrow.lowest, 1e-2) << seed;
    EXPECT_NEAR(border.lowest, dimensions * 0.09, 1e-6) << "at the border";
    EXPECT_LT(coarse.lowest, 0.25 * stairs(start)) << seed;
    EXPECT_LT(narrow.lowest, 0.1 * chance.lowest) << seed;
    for (const Budget &one : {narrow, border, coarse, chance})
      EXPECT_EQ(one.budget, size_t(-1)) << "the whole budget is spent";
  }
}

TEST(Search, depends_on_the_seed_alone) {
  Budget first{valley, 50}, again{valley, 50}, other{valley, 50};
  search_subplex(start, 0.1, 1, first.height());
  search_subplex(start, 0.1, 1, again.height());
  search_subplex(start, 0.1, 2, other.height());
  EXPECT_EQ(first.places, again.places);
  EXPECT_NE(first.places, other.places);
}

TEST(Search, passes_on_what_the_height_throws) {
  EXPECT_THROW(
      search_subplex(start, 0.1, 1, [](const Point &) -> std::optional<double> { throw std::range_error("x"); }),
      std::range_error);
}

} // namespace
} // namespace qv::tool::tune
