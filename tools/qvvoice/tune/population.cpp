#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "scene/random.h"
#include "tune/search.h"

namespace qv::tool::tune {
namespace {

/// The state of an evolution strategy. Names and constants are those of Hansen, The CMA Evolution Strategy: A Tutorial
/// (2016), with the covariance matrix left at one: the plan has scaled the axes, and within some hundred evaluations
/// learning their variances did not pay (docs/tuning.md).
class Strategy {
public:
  Strategy(const Point &start, double step, size_t generation)
      : n_(double(start.size())), mean_(start), sigma_(step), path_(start.size()) {
    double sum = 0, squares = 0;
    for (size_t i = 0; i < generation / 2; ++i)
      sum += weights_.emplace_back(std::log(double(generation + 1) / 2) - std::log(double(i + 1)));
    for (double &weight : weights_)
      squares += std::pow(weight /= sum, 2);
    mu_eff_ = 1 / squares;
    c_sigma_ = (mu_eff_ + 2) / (n_ + mu_eff_ + 5);
    damping_ = 1 + 2 * std::max(0.0, std::sqrt((mu_eff_ - 1) / (n_ + 1)) - 1) + c_sigma_;
  }

  Point drawn(scene::Random &random) const {
    Point place = mean_;
    for (double &value : place)
      value = std::clamp(value + sigma_ * random.normal(), 0.0, 1.0);
    return place;
  }

  /// @param heights  of `places`
  void learn(const std::vector<Point> &places, const std::vector<double> &heights) {
    std::vector<size_t> order(places.size());
    std::iota(order.begin(), order.end(), 0);
    std::ranges::stable_sort(order, {}, [&](size_t i) { return heights[i]; });
    double length = 0;
    for (size_t i = 0; i < mean_.size(); ++i) {
      double move = 0;
      for (size_t k = 0; k < weights_.size(); ++k)
        move += weights_[k] * (places[order[k]][i] - mean_[i]) / sigma_;
      mean_[i] += sigma_ * move;
      path_[i] = (1 - c_sigma_) * path_[i] + std::sqrt(c_sigma_ * (2 - c_sigma_) * mu_eff_) * move;
      length += path_[i] * path_[i];
    }
    const double usual_length = std::sqrt(n_) * (1 - 1 / (4 * n_) + 1 / (21 * n_ * n_)); // of a random walk
    sigma_ *= std::exp(std::min(1.0, c_sigma_ / damping_ * (std::sqrt(length) / usual_length - 1)));
  }

  /// Whether its steps have become so short that nothing new comes.
  bool settled() const {
    constexpr double nothing = 1e-4; // of a range
    return sigma_ < nothing;
  }

private:
  double n_;
  Point mean_;
  double sigma_;                ///< of the next generation, along every axis
  Point path_;                  ///< of the mean through the last generations, in sigmas
  std::vector<double> weights_; ///< of the better half, the best first
  double mu_eff_, c_sigma_, damping_;
};

} // namespace

size_t usual_generation(size_t dimensions) { return 4 + size_t(3 * std::log(double(dimensions))); }

void search_population(const Point &start, double step, uint64_t seed, size_t generation, const Heights &heights) {
  scene::Random random(seed);
  Strategy strategy(start, step, generation);
  Point best = start;
  double lowest = std::numeric_limits<double>::infinity();
  for (;;) {
    std::vector<Point> places(generation);
    for (Point &place : places)
      place = strategy.drawn(random);
    const std::vector<double> found = heights(places);
    if (found.size() < places.size())
      return;
    strategy.learn(places, found);
    const auto here = std::ranges::min_element(found);
    if (*here < lowest) {
      lowest = *here;
      best = places[size_t(here - found.begin())];
    }
    if (strategy.settled())
      strategy = Strategy(best, step, generation);
  }
}

} // namespace qv::tool::tune
