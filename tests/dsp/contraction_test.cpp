// No product is fused into a sum unless the code says so: every build gives the same bits.

#include <gtest/gtest.h>

#include <vector>

#include "qvvoice/dsp/math.h"
#include "qvvoice/dsp/spectrum.h"

namespace {

// The imaginary part of X conj(X) is b a - a b: exactly 0, and the rounding error of a product when fused.
// X X is b a + a b there: exactly twice the product.
TEST(Contraction, complex_products_round_each_term) {
  for (const int32_t n : {256, 320, 512, 640}) {
    std::vector<float> x(n), self(n), square(n);
    uint32_t seed = 1;
    for (float &value : x)
      value = VOICE_Rand(&seed, 1000.f);
    VOICE_SpectralCorrAccum(x.data(), x.data(), self.data(), n, 1);
    VOICE_SpectralMulAccum(x.data(), x.data(), square.data(), n, 1);
    for (int32_t k = 1; k < n / 2; ++k) {
      const float re = x[2 * k - 1], im = x[2 * k];
      ASSERT_EQ(self[2 * k], 0.f) << n << " points, bin " << k;
      ASSERT_EQ(square[2 * k], 2.f * (re * im)) << n << " points, bin " << k;
    }
  }
}

} // namespace
