// Four transforms at once against kissfft's of one signal, compiled from the same source: every bit.

#include "dsp/batch.h"

#include <kissfft/kiss_fftr.h>

#include <cstring>
#include <memory>

#include "support.h"

namespace {

using namespace qv;
using test::noise_values;

constexpr int32_t lengths[] = {128, 160, 256, 320, 512, 640};
using Values = std::vector<float>;

/// The transforms of one signal, in place: real parts take the place of the first half of the frame.
class Alone {
public:
  explicit Alone(int32_t length)
      : forward_(kiss_fftr_alloc(length, 0, nullptr, nullptr), std::free),
        inverse_(kiss_fftr_alloc(length, 1, nullptr, nullptr), std::free), bins_(size_t(length) / 2 + 1) {}

  void forward(float *re, float *im) {
    kiss_fftr(forward_.get(), re, bins_.data());
    for (size_t k = 0; k < bins_.size(); ++k)
      re[k] = bins_[k].r, im[k] = bins_[k].i;
  }
  void inverse(float *re, const float *im) {
    for (size_t k = 0; k < bins_.size(); ++k)
      bins_[k] = {re[k], im[k]};
    kiss_fftri(inverse_.get(), bins_.data(), re);
  }

private:
  std::unique_ptr<kiss_fftr_state, void (*)(void *)> forward_, inverse_;
  std::vector<kiss_fft_cpx> bins_;
};

/// Values of every size that leaves sums finite: ordinary, subnormal, near the greatest, all of these in one frame with
/// zeros of both signs, a lone impulse.
Values values(uint32_t kind, uint32_t seed, size_t count) {
  const float peaks[] = {32768.f, 1e-39f, 1e34f};
  Values result = noise_values(seed, count, kind < 3 ? peaks[kind] : 1.f);
  for (size_t i = 0; i < count; ++i)
    if (kind == 3)
      result[i] *= std::ldexp(1.f, int((i * 7 + seed) % 220) - 150) * float(i % 5 != 0);
    else if (kind == 4)
      result[i] *= float(i == seed % count);
  return result;
}
constexpr uint32_t kinds = 5;

bool same_bits(const Values &x, const Values &y) {
  return std::memcmp(x.data(), y.data(), x.size() * sizeof(float)) == 0;
}

// Any lanes may be left out, arrays stand at any float's address, outputs may be where inputs were, and nothing is
// written behind them.
TEST(Batch, every_lane_has_the_bits_of_its_signal_alone) {
  for (const int32_t length : lengths) {
    const auto count = size_t(length) + 1; // the first one moves the rest off its alignment
    BatchTransform batch;
    ASSERT_TRUE(batch.init(length));
    Alone alone(length);
    for (uint32_t round = 0; round < 2 * 16 * kinds; ++round) {
      const bool back = round >= 16 * kinds;
      Values re[4], im[4], expected_re[4], expected_im[4];
      float *time[4];
      SplitSpectrum spectrum[4];
      ConstSplitSpectrum given[4];
      for (uint32_t lane = 0; lane < 4; ++lane) {
        const uint32_t kind = (round + lane) % kinds, seed = 4 * round + lane;
        expected_re[lane] = re[lane] = values(kind, seed, count);
        expected_im[lane] = im[lane] = back ? values(kind, seed + 2000, count) : Values(count, -77.f);
        const bool used = round >> lane & 1;
        time[lane] = used || back ? &re[lane][1] : nullptr;
        spectrum[lane] = {&re[lane][1], &im[lane][1]};
        given[lane] = {used ? &re[lane][1] : nullptr, &im[lane][1]};
        if (used && back)
          alone.inverse(&expected_re[lane][1], &expected_im[lane][1]);
        else if (used)
          alone.forward(&expected_re[lane][1], &expected_im[lane][1]);
        ASSERT_TRUE(std::isfinite(expected_re[lane][2])) << "overflown: no test";
      }
      if (back)
        batch.inverse(given, time);
      else
        batch.forward({time[0], time[1], time[2], time[3]}, spectrum);
      for (size_t lane = 0; lane < 4; ++lane) {
        ASSERT_TRUE(same_bits(re[lane], expected_re[lane])) << length << " " << round << " " << lane;
        ASSERT_TRUE(same_bits(im[lane], expected_im[lane])) << length << " " << round << " " << lane;
      }
    }
    batch.destroy();
  }
}

TEST(Batch, other_lengths_are_refused_and_hold_nothing) {
  BatchTransform batch;
  ASSERT_TRUE(batch.init(640));
  ASSERT_TRUE(batch.init(128)); // what the first took is returned: the leak sanitizer looks
  for (const int32_t length : {0, -8, 4, 132, 56, 88, 648, 720, 1280, 1 << 30})
    EXPECT_FALSE(batch.init(length)) << length;
  batch.destroy();
}

} // namespace
