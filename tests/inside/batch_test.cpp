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

/// A spectrum, and the frame that is transformed into it or out of it.
struct Signal {
  Values time, re, im;
  explicit Signal(size_t length) : time(length), re(length / 2 + 1), im(length / 2 + 1) {}
};

bool same_bits(const Values &x, const Values &y) {
  return !x.empty() && x.size() == y.size() && std::memcmp(x.data(), y.data(), x.size() * sizeof(float)) == 0;
}

/// The transforms of one signal.
class Alone {
public:
  explicit Alone(int32_t length)
      : forward_(kiss_fftr_alloc(length, 0, nullptr, nullptr), std::free),
        inverse_(kiss_fftr_alloc(length, 1, nullptr, nullptr), std::free), bins_(size_t(length) / 2 + 1) {}

  void forward(Signal &signal) {
    kiss_fftr(forward_.get(), signal.time.data(), bins_.data());
    for (size_t k = 0; k < bins_.size(); ++k)
      signal.re[k] = bins_[k].r, signal.im[k] = bins_[k].i;
  }
  void inverse(Signal &signal) {
    for (size_t k = 0; k < bins_.size(); ++k)
      bins_[k] = {signal.re[k], signal.im[k]};
    kiss_fftri(inverse_.get(), bins_.data(), signal.time.data());
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

struct Batch : BatchTransform {
  explicit Batch(int32_t length) { EXPECT_TRUE(init(length)) << length; }
  ~Batch() { destroy(); }

  void forward_all(std::vector<Signal> &s) {
    forward({s[0].time.data(), s[1].time.data(), s[2].time.data(), s[3].time.data()},
            {{s[0].re.data(), s[0].im.data()},
             {s[1].re.data(), s[1].im.data()},
             {s[2].re.data(), s[2].im.data()},
             {s[3].re.data(), s[3].im.data()}});
  }
  void inverse_all(std::vector<Signal> &s) {
    inverse({{s[0].re.data(), s[0].im.data()},
             {s[1].re.data(), s[1].im.data()},
             {s[2].re.data(), s[2].im.data()},
             {s[3].re.data(), s[3].im.data()}},
            {s[0].time.data(), s[1].time.data(), s[2].time.data(), s[3].time.data()});
  }
};

TEST(Batch, every_lane_has_the_bits_of_its_signal_alone) {
  for (const int32_t length : lengths) {
    Batch batch(length);
    Alone alone(length);
    for (uint32_t round = 0; round < 4 * kinds; ++round) {
      std::vector<Signal> there(4, Signal(size_t(length))), back = there;
      for (uint32_t lane = 0; lane < 4; ++lane) {
        const uint32_t kind = (round + lane) % kinds, seed = 4 * round + lane;
        there[lane].time = values(kind, seed, there[lane].time.size());
        back[lane].re = values(kind, seed + 1000, back[lane].re.size());
        back[lane].im = values(kind, seed + 2000, back[lane].im.size());
      }
      auto expected_there = there, expected_back = back;
      batch.forward_all(there);
      batch.inverse_all(back);
      for (size_t lane = 0; lane < 4; ++lane) {
        alone.forward(expected_there[lane]);
        alone.inverse(expected_back[lane]);
        ASSERT_TRUE(same_bits(there[lane].re, expected_there[lane].re)) << length << " " << round << " " << lane;
        ASSERT_TRUE(same_bits(there[lane].im, expected_there[lane].im)) << length << " " << round << " " << lane;
        ASSERT_TRUE(same_bits(back[lane].time, expected_back[lane].time)) << length << " " << round << " " << lane;
        ASSERT_TRUE(std::isfinite(there[lane].re[1]) && std::isfinite(back[lane].time[1])) << "overflown: no test";
      }
    }
  }
}

// Any lanes may be left out, arrays stand at any float's address, and outputs may be where inputs were.
TEST(Batch, unused_lanes_are_left_alone_and_used_ones_work_in_place) {
  constexpr int32_t length = 160;
  Batch batch(length);
  Alone alone(length);
  for (uint32_t used = 0; used < 16; ++used) {
    std::vector<Values> frame(4), im(4, Values(length + 1, -77.f));
    std::vector<Signal> expected(4, Signal(length));
    const float *in[4];
    SplitSpectrum out[4];
    ConstSplitSpectrum spectrum[4];
    float *back[4];
    for (uint32_t lane = 0; lane < 4; ++lane) {
      frame[lane] = noise_values(lane, length + 1, 1000.f);
      std::copy_n(&frame[lane][1], length, expected[lane].time.begin());
      alone.forward(expected[lane]);
      const bool is_used = used >> lane & 1;
      in[lane] = is_used ? &frame[lane][1] : nullptr;
      out[lane] = {&frame[lane][1], &im[lane][1]};
      spectrum[lane] = {is_used ? out[lane].re : nullptr, out[lane].im};
      back[lane] = out[lane].re;
    }
    const auto untouched = frame;
    batch.forward(in, out);
    for (uint32_t lane = 0; lane < 4; ++lane) {
      const bool is_used = used >> lane & 1;
      const size_t bins = expected[lane].re.size();
      const Values re(&frame[lane][1], &frame[lane][1 + bins]), imaginary(&im[lane][1], &im[lane][1 + bins]);
      EXPECT_EQ(same_bits(re, expected[lane].re) && same_bits(imaginary, expected[lane].im), is_used) << used;
      EXPECT_EQ(frame[lane] == untouched[lane] && im[lane] == Values(length + 1, -77.f), !is_used) << used;
      EXPECT_TRUE(std::equal(&frame[lane][1 + bins], frame[lane].data() + length + 1, &untouched[lane][1 + bins]))
          << used;
      EXPECT_TRUE(std::all_of(&im[lane][1 + bins], im[lane].data() + length + 1, [](float x) { return x == -77.f; }))
          << used;
      alone.inverse(expected[lane]);
    }
    batch.inverse(spectrum, back);
    for (uint32_t lane = 0; lane < 4; ++lane)
      if (used >> lane & 1)
        EXPECT_TRUE(same_bits(Values(&frame[lane][1], &frame[lane][1 + length]), expected[lane].time)) << used;
      else
        EXPECT_TRUE(frame[lane] == untouched[lane]) << used;
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
