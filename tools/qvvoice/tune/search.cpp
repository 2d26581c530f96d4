#include "tune/search.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace qv::tool::tune {

using Eigen::MatrixXd;
using Eigen::VectorXd;

EvolutionStrategy::EvolutionStrategy(const Point &start, double step, uint64_t seed)
    : generation_size_(4 + size_t(3 * std::log(double(start.size())))), random_(seed),
      mean_(Eigen::Map<const VectorXd>(start.data(), Eigen::Index(start.size()))), step_(step) {
  const Eigen::Index n = mean_.size(), parents = Eigen::Index(generation_size_ / 2);
  step_path_ = covariance_path_ = VectorXd::Zero(n);
  scales_ = VectorXd::Ones(n);
  covariance_ = axes_ = MatrixXd::Identity(n, n);
  weights_.resize(parents);
  for (Eigen::Index i = 0; i < parents; ++i)
    weights_[i] = std::log(double(generation_size_ + 1) / 2) - std::log(double(i + 1));
  weights_ /= weights_.sum();
  mass_ = 1 / weights_.squaredNorm();
}

std::vector<Point> EvolutionStrategy::ask() {
  std::vector<Point> points;
  for (size_t k = 0; k < generation_size_; ++k) {
    VectorXd normal(mean_.size());
    for (double &value : normal)
      value = random_.normal();
    const VectorXd x = mean_ + step_ * (axes_ * scales_.cwiseProduct(normal));
    const VectorXd inside = x.cwiseMax(0).cwiseMin(1);
    points.emplace_back(inside.begin(), inside.end());
  }
  return points;
}

void EvolutionStrategy::tell(const std::vector<Point> &points, const std::vector<double> &costs) {
  std::vector<size_t> order(points.size());
  std::iota(order.begin(), order.end(), 0);
  std::ranges::stable_sort(order, {}, [&](size_t i) { return costs[i]; });

  const auto n = double(mean_.size());
  const double path_rate = (4 + mass_ / n) / (n + 4 + 2 * mass_ / n);
  const double step_rate = (mass_ + 2) / (n + mass_ + 5);
  const double rank_one = 2 / ((n + 1.3) * (n + 1.3) + mass_);
  const double rank_mass = std::min(1 - rank_one, 2 * (mass_ - 2 + 1 / mass_) / ((n + 2) * (n + 2) + mass_));
  const double damping = 1 + 2 * std::max(0.0, std::sqrt((mass_ - 1) / (n + 1)) - 1) + step_rate;
  const double normal_length = std::sqrt(n) * (1 - 1 / (4 * n) + 1 / (21 * n * n)); // of a normal vector, expected

  VectorXd shift = VectorXd::Zero(mean_.size());
  MatrixXd spread = MatrixXd::Zero(mean_.size(), mean_.size());
  for (Eigen::Index i = 0; i < weights_.size(); ++i) {
    const Point &point = points[order[size_t(i)]];
    const VectorXd y = (Eigen::Map<const VectorXd>(point.data(), mean_.size()) - mean_) / step_;
    shift += weights_[i] * y;
    spread += weights_[i] * y * y.transpose();
  }
  mean_ += step_ * shift;
  ++generations_;

  const VectorXd white = axes_ * (axes_.transpose() * shift).cwiseQuotient(scales_);
  step_path_ = (1 - step_rate) * step_path_ + std::sqrt(step_rate * (2 - step_rate) * mass_) * white;
  const double settled = std::sqrt(1 - std::pow(1 - step_rate, 2 * generations_));
  const bool going = step_path_.norm() / settled < (1.4 + 2 / (n + 1)) * normal_length;
  covariance_path_ = (1 - path_rate) * covariance_path_;
  if (going)
    covariance_path_ += std::sqrt(path_rate * (2 - path_rate) * mass_) * shift;
  const double lost = going ? 0 : rank_one * path_rate * (2 - path_rate);
  covariance_ = (1 - rank_one - rank_mass + lost) * covariance_ +
                rank_one * covariance_path_ * covariance_path_.transpose() + rank_mass * spread;
  step_ *= std::exp(step_rate / damping * (step_path_.norm() / normal_length - 1));

  const Eigen::SelfAdjointEigenSolver<MatrixXd> eigen(covariance_);
  axes_ = eigen.eigenvectors();
  scales_ = eigen.eigenvalues().cwiseMax(1e-12).cwiseSqrt();
}

std::vector<Point> RandomSearch::ask() {
  Point point(dimensions_);
  std::ranges::generate(point, [this] { return random_.uniform(); });
  return {point};
}

} // namespace qv::tool::tune
