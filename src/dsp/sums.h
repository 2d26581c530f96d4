/// @file sums.h  Several sums side by side.
///
/// A sum in index order waits for its previous addition at every element. Independent sums of the same
/// length cost little more than one when they share a loop; each keeps its order, and so its bits.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "dsp/fma.h"

namespace qv {

struct Factors {
  const float *a, *b;
};

/// Sums of a[i] * b[i] over `count` elements, one fused multiply-add per element.
template <size_t sums> std::array<float, sums> dot_products(const Factors (&factors)[sums], int32_t count) {
  std::array<float, sums> total{};
  for (int32_t i = 0; i < count; ++i)
    for (size_t s = 0; s < sums; ++s)
      total[s] = accumulate(factors[s].a[i], factors[s].b[i], total[s]);
  return total;
}

/// Sums of values[s][i] over `count` elements.
template <size_t sums> std::array<float, sums> vector_sums(const float *const (&values)[sums], int32_t count) {
  std::array<float, sums> total{};
  for (int32_t i = 0; i < count; ++i)
    for (size_t s = 0; s < sums; ++s)
      total[s] += values[s][i];
  return total;
}

} // namespace qv
