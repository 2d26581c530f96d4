/// @file random.h  The same numbers from the same seed on every machine and standard library.
#pragma once

#include <cmath>
#include <cstdint>
#include <numbers>

namespace qv::tool::scene {

/// splitmix64 (Steele, Lea and Flood 2014).
class Random {
public:
  /// @param stream  which of the independent sequences of the seed
  explicit Random(uint64_t seed, uint64_t stream = 0) : state_(seed) { state_ = next() + stream * step; }

  uint64_t next() {
    uint64_t z = state_ += step;
    z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9;
    z = (z ^ z >> 27) * 0x94D049BB133111EB;
    return z ^ z >> 31;
  }

  /// 0 <= u < 1
  double uniform() { return double(next() >> 11) * 0x1p-53; }

  /// 0 <= i < count; count far below 2^32, so that the bias does not matter
  size_t below(size_t count) { return size_t((next() >> 32) * count >> 32); }

  /// Mean 0, variance 1 (Box and Muller 1958).
  double normal() {
    const double radius = std::sqrt(-2 * std::log(1 - uniform()));
    return radius * std::cos(2 * std::numbers::pi * uniform());
  }

private:
  static constexpr uint64_t step = 0x9E3779B97F4A7C15;
  uint64_t state_;
};

} // namespace qv::tool::scene
