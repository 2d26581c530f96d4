// The parts of the state-space echo canceller by themselves, in all layouts.

#include <numeric>

#include "qvvoice/dsp/layout.h"
#include "state_space/canceller.h"
#include "talk.h"

namespace {

using namespace qv;
using namespace qv::state_space;
using namespace qv::test;

constexpr float tail_ms = 320;

/// Released at the end of a scope.
template <class Part> struct Owned : Part {
  Owned() = default;
  Owned(const Owned &) = delete;
  ~Owned() { destroy(static_cast<Part &>(*this)); }
};
struct Transform : BatchTransform {
  explicit Transform(int32_t length) { EXPECT_TRUE(init(length)); }
  ~Transform() { destroy(); }

  /// The first of the lanes alone.
  void spectrum_of(const float *in, const SplitSpectrum &out) { forward({in}, {out}); }
  void signal_of(const SplitSpectrum &in, float *out) { inverse({{in.re, in.im}}, {out}); }
};

/// The whole canceller at work on a known path, without a noise reducer.
struct Experiment {
  Shape shape;
  Owned<Canceller> c;
  Transform transform;
  Signal block, ones;
  double true_residual = 0, expected_residual = 0; ///< of the steady filter, powers, summed since they were cleared
  int32_t changes = 0;                             ///< of the path that were found
  float offset = 0;                                ///< below 10 Hz the echo is none

  explicit Experiment(const Layout &l)
      : shape(shape_of(l.rate, l.frame_len, tail_ms)), transform(2 * l.frame_len), block(2 * size_t(l.frame_len)),
        ones(size_t(l.frame_len), 1) {
    EXPECT_TRUE(init(l.rate, l.frame_len, {1, tail_ms, 50, 0.5f, 1}, false, 1, c));
  }

  /// @param echo  the filter's task  @param near  what else the microphone hears
  void run(const Samples &far, const Signal &echo, const Signal &near) {
    const auto n = size_t(shape.n);
    const Samples mic = sampled(echo + near);
    int16_t out[QV_MAX_FRAME];
    for (size_t at = 0; at + n <= far.size(); at += n) {
      cancel(&mic[at], &far[at], out, c);
      transform.signal_of(c.steady.echo[0], block.data());
      for (size_t i = 0; i < n; ++i) {
        const float heard = echo[at + i] - offset;
        offset += 2 * std::numbers::pi_v<float> * 10 / float(shape.rate) * heard;
        const float left = heard - block[n + i] / float(2 * n);
        true_residual += double(left) * left * double(2 * n); // Parseval, over both halves of the bins
      }
      for (int32_t k = 1; k < shape.n; ++k)
        expected_residual += double(c.steady.uncertainty[k]); // of 2N samples, half of them new
      suppress(ones.data(), out, c);
      changes += c.report.path_changed;
    }
  }
  void clear() { true_residual = expected_residual = changes = 0; }
};

/// Half seconds of a call, one after the other.
struct HalfSeconds {
  size_t half;
  Samples far;
  Signal echo, near;

  /// @param change_at  half second from which the second room is heard
  HalfSeconds(const Layout &l, bool speech, const std::vector<std::pair<float, float>> &far_and_near_rms,
              const Room &room, const Room &later, size_t change_at = 999)
      : half(size_t(l.rate / 2 / l.frame_len * l.frame_len)) {
    Signal sound;
    for (const auto &[far_rms, near_rms] : far_and_near_rms) {
      const auto seed = uint32_t(sound.size());
      std::ranges::copy(speech ? talk(half, l.rate, far_rms, seed) : white(half, far_rms, seed),
                        std::back_inserter(sound));
      std::ranges::copy(near_rms > 100 ? talk(half, l.rate, near_rms, seed + 3) : white(half, near_rms, seed + 7),
                        std::back_inserter(near));
    }
    far = sampled(sound);
    sound.assign(far.begin(), far.end());
    echo = room.echo(sound);
    const Signal after = later.echo(sound);
    for (size_t i = change_at * half; i < echo.size(); ++i)
      echo[i] = after[i];
  }
  /// @return residual of the steady filter over the echo, dB
  double run(size_t k, Experiment &e) const {
    const auto part = [&]<class Sound>(const Sound &whole) {
      return Sound(whole.begin() + std::ptrdiff_t(k * half), whole.begin() + std::ptrdiff_t((k + 1) * half));
    };
    e.clear();
    e.run(part(far), part(echo), part(near));
    double power = 0;
    for (const float x : part(echo))
      power += double(x) * x;
    return 10 * std::log10(e.true_residual / (power * 2 * e.shape.n));
  }
};

// The filter's own residual, without what the suppressor takes off: on the way to a path, under a talker as loud as the
// echo, behind one who has talked while the reference only rustled, and on a path that has changed. It never expects to
// leave much less than it does, and knows that it has improved.
TEST(Canceller, converges_knows_its_error_and_stays_where_it_is) {
  constexpr struct {
    size_t from, to;      ///< half seconds
    double white, speech; ///< dB over the echo, at most
  } masks[] = {{4, 6, -13, -8}, {9, 12, -26, -18}, {12, 16, -20, -7}, {20, 22, -22, -14}, {23, 25, -10, -5}};
  for (const Layout &l : all_layouts)
    for (const bool speech : {false, true}) {
      SCOPED_TRACE(testing::Message() << l << (speech ? ", speech" : ", white noise"));
      Experiment e(l);
      const Room room(l.rate, 35, 0.5f, 5), other(l.rate, 47, 0.5f, 6);
      std::vector<std::pair<float, float>> rms(12, {2000, 10});
      rms.insert(rms.end(), 4, {2000, 1000});
      rms.insert(rms.end(), 4, {3, 3000});
      rms.insert(rms.end(), 6, {2000, 10});
      const HalfSeconds call(l, speech, rms, room, other, 22);
      double residual[26], expected[26];
      for (size_t k = 0; k < rms.size(); ++k) {
        residual[k] = call.run(k, e);
        expected[k] = residual[k] + 10 * std::log10(e.expected_residual / e.true_residual);
        EXPECT_GT(expected[k], residual[k] - 10) << k;
        EXPECT_LT(expected[k], residual[k] + 35) << k;
      }
      EXPECT_LT(expected[11], expected[0] - 15);
      for (const auto &mask : masks) {
        const double mean =
            std::accumulate(residual + mask.from, residual + mask.to, 0.0) / double(mask.to - mask.from);
        EXPECT_LT(mean, speech ? mask.speech : mask.white) << "from half second " << mask.from;
      }
    }
}

// The room's response moves through the filter as the clocks drift apart: followed, and told in parts per million.
TEST(Canceller, follows_clocks_that_drift_apart) {
  for (const Layout &l : all_layouts)
    for (const double ppm : {50.0, -200.0}) {
      SCOPED_TRACE(testing::Message() << l << ", " << ppm << " ppm");
      Experiment e(l);
      HalfSeconds call(l, true, {16, {2000, 5}}, Room(l.rate, 35, 0.5f, 5), Room(l.rate, 35, 0.5f, 5));
      const Signal echo = std::exchange(call.echo, Signal(call.echo.size()));
      for (size_t i = 60; i + 60 < echo.size(); ++i) { // what the microphone's sample i hears is at i / (1 + ppm)
        const double at = double(i) / (1 + ppm * 1e-6), whole = std::floor(at);
        for (int32_t k = -15; k <= 16; ++k) {
          const double x = std::numbers::pi * (at - whole - k);
          const double sinc = std::fabs(x) < 1e-9 ? 1 : std::sin(x) / x;
          call.echo[i] += float(sinc * (0.5 + 0.5 * std::cos(x / 17))) * echo[size_t(whole + k)];
        }
      }
      double residual = 0;
      for (size_t k = 0; k < 16; ++k)
        residual = call.run(k, e);
      EXPECT_NEAR(e.c.report.drift_ppm, ppm, 8);
      EXPECT_LT(residual, -12);
    }
}

// Every partition gets its turn, loses what stands behind N taps and nothing else; the highest tap is found.
TEST(Filter, is_held_to_n_taps_a_partition) {
  for (const Layout &l : all_layouts) {
    Experiment e(l);
    const auto n = size_t(l.frame_len);
    Filter &f = e.c.steady;
    std::vector<Signal> responses;
    for (int32_t p = 0; p < f.all; ++p) {
      responses.push_back(noise_values(uint32_t(p), 2 * n, 1));
      responses.back()[n / 2] = p == 4 ? 3 : p == f.all - 1 ? 9 : 0; // what exceeds is no echo path of its own
      e.transform.spectrum_of(responses.back().data(), f.path[p]);
    }
    for (int32_t turn = 0; 2 * turn < f.all; ++turn)
      constrain(f, e.c.quick, e.transform);
    EXPECT_EQ(highest_tap(f), 4 * l.frame_len + l.frame_len / 2) << l;
    for (int32_t p = 0; p < f.all; ++p) {
      e.transform.signal_of(f.path[p], e.block.data());
      for (size_t i = 0; i < 2 * n; ++i)
        ASSERT_NEAR(e.block[i] / float(2 * n), i < n ? responses[size_t(p)][i] : 0, 1e-4) << l << " " << p << " " << i;
    }
  }
}

// A bulk delay that moves by frames and a filter that is shifted with it give the same echo, to the bit.
TEST(Filter, shifted_with_the_delay_keeps_the_echo) {
  for (const Layout &l : all_layouts)
    for (const int32_t by : {3, -3}) {
      Experiment e(l);
      Filter &f = e.c.steady;
      set_delay(5, e.c.reference);
      Signal now_re(size_t(e.shape.stride)), now_im(now_re);
      for (uint32_t k = 0; int32_t(k) < e.shape.delays; ++k)
        push(noise_samples(k, size_t(l.frame_len), 9000).data(), e.c.reference, e.transform,
             {now_re.data(), now_im.data()});
      for (const int32_t p : {3, 4}) // where nothing is shifted out
        for (float *values : {f.path[p].re, f.path[p].im})
          std::ranges::copy(noise_values(uint32_t(p), size_t(e.shape.stride), 1), values);
      predict(e.c.reference, f);
      const Signal before(f.echo.re, f.echo.re + e.shape.n), before_im(f.echo.im, f.echo.im + e.shape.n);
      shift(by, f);
      set_delay(5 + by, e.c.reference);
      predict(e.c.reference, f);
      EXPECT_GT(before[7] * before[7] + before_im[7] * before_im[7], 0) << l;
      EXPECT_EQ(Signal(f.echo.re, f.echo.re + e.shape.n), before) << l << " " << by;
      EXPECT_EQ(Signal(f.echo.im, f.echo.im + e.shape.n), before_im) << l << " " << by;
    }
}

// An echo below a talker of the other side is found at any lag; with a talker alone no lag stands out for long.
TEST(Arrival, finds_the_lag_and_nothing_where_there_is_none) {
  constexpr float found_peak = 6;
  for (const Layout &l : all_layouts) {
    const Shape shape = shape_of(l.rate, l.frame_len, tail_ms);
    const auto n = size_t(l.frame_len), count = size_t(3 * l.rate) / n * n;
    for (const double lag_ms : {-1.0, 0.0, 7.0, 20.0, 95.0, 251.0, 377.0, 490.0}) {
      Owned<Arrival> a;
      Owned<Reference> reference;
      ASSERT_TRUE(init(shape, a) && init(shape, reference));
      Transform transform(2 * l.frame_len), to_lags(a.length);
      const Signal far = talk(count, l.rate, 2000, uint32_t(lag_ms + 3));
      const auto lag = size_t(std::max(0.0, lag_ms) * l.rate / 1000);
      Signal error = talk(count, l.rate, 300, uint32_t(lag_ms + 40)) + white(count, 20, 9);
      if (lag_ms >= 0)
        for (size_t i = lag; i < count; ++i)
          error[i] += 0.15f * far[i - lag];
      const Samples far_samples = sampled(far);
      Signal re(size_t(shape.stride)), im(re), now_re(re), now_im(re), block(2 * n);
      int32_t stood_out = 0, right = 0, longest = 0;
      for (size_t at = 0; at + n <= count; at += n) {
        push(&far_samples[at], reference, transform, {now_re.data(), now_im.data()});
        push({now_re.data(), now_im.data()}, a);
        for (size_t i = 0; i < n; ++i)
          block[n + i] = error[at + i] * a.window[i];
        transform.spectrum_of(block.data(), {re.data(), im.data()});
        search({re.data(), im.data()}, a, to_lags);
        if (a.peak > found_peak && a.lasting >= 3) {
          ++stood_out;
          right += std::abs(a.lag - int32_t(lag)) <= 2 * a.step;
          longest = std::max(longest, a.lasting);
        }
      }
      if (lag_ms < 0) {
        EXPECT_LE(longest, 2) << l;
        continue;
      }
      EXPECT_GE(longest, 10) << l << " " << lag_ms;
      EXPECT_GT(right, stood_out * 9 / 10) << l << " " << lag_ms;
    }
  }
}

// Bin by bin, from bin 1 to the last, each in one band; means weighed by widths give the total.
TEST(Bands, cover_every_bin_once) {
  for (const Layout &l : all_layouts) {
    const Bands bands = bands_of(shape_of(l.rate, l.frame_len, tail_ms));
    ASSERT_LE(bands.count, most_bands) << l;
    EXPECT_GT(bands.count, 16) << l;
    EXPECT_EQ(bands.edge[0], 1) << l;
    EXPECT_EQ(bands.edge[bands.count], l.frame_len + 1) << l;
    Signal power = noise_values(3, size_t(l.frame_len) + 1);
    float mean[most_bands];
    means_of(power.data(), bands, mean);
    double total = 0, expected = 0;
    for (int32_t b = 0; b < bands.count; ++b) {
      EXPECT_GE(bands.width(b), 2) << l << " " << b;
      total += double(mean[b]) * bands.width(b);
    }
    for (size_t k = 1; k < power.size(); ++k)
      expected += double(power[k]);
    EXPECT_NEAR(total, expected, 1e-4) << l;
  }
}

/// Band powers of a signal as the suppressor sees them.
struct Tracked {
  Shape shape;
  Transform transform;
  Owned<Suppressor> s;
  Background &bg = s.background;
  float error[most_bands], echo[most_bands] = {};

  explicit Tracked(const Layout &l) : shape(shape_of(l.rate, l.frame_len, tail_ms)), transform(2 * l.frame_len) {
    EXPECT_TRUE(init(shape, false, 1, s));
    tune({1, tail_ms, 50, 0.5f, 1}, s);
  }
  /// @return mean level over bands and the last second, over that of white noise with rms 1, dB
  double hear(const Signal &sound) {
    const auto n = size_t(shape.n), last = sound.size() - size_t(shape.rate);
    double sum = 0;
    int32_t count = 0;
    Signal windowed(2 * n), power(n + 1);
    for (size_t at = 0; at + n <= sound.size(); at += n) {
      window_error(&sound[at], windowed.data(), s);
      transform.spectrum_of(windowed.data(), s.error);
      power_of(s.error, 1, power.data(), shape.n + 1);
      means_of(power.data(), bg.bands, error);
      track(error, echo, bg);
      for (int32_t b = 0; b < bg.bands.count && at >= last; ++b, ++count)
        sum += 10 * std::log10(double(bg.power[b]) / shape.n); // the window's energy is N
    }
    return sum / count;
  }
};

TEST(Background, is_steady_noise_rises_with_it_and_not_with_speech) {
  for (const Layout &l : all_layouts) {
    const auto seconds = [&](size_t count) { return count * size_t(l.rate); };
    Tracked t(l);
    const double start = t.hear(white(seconds(3), 30, 1));
    const double speech = t.hear(white(seconds(6), 30, 2) + talk(seconds(6), l.rate, 600, 3));
    const double risen = t.hear(white(seconds(4), 95, 4));
    // An echo that is expected raises nothing, nor does it hold the estimate for ever.
    std::fill_n(t.echo, most_bands, 1e9f);
    const double under_echo = t.hear(white(seconds(3), 1000, 5));
    std::fill_n(t.echo, most_bands, 0.f);
    const double fallen = t.hear(white(seconds(3), 30, 6));
    EXPECT_NEAR(start, 20 * std::log10(30), 1) << l;
    EXPECT_NEAR(speech, 20 * std::log10(30), 2.5) << l;
    EXPECT_NEAR(risen, 20 * std::log10(95), 1.5) << l;
    EXPECT_NEAR(under_echo, risen, 1) << l;
    EXPECT_NEAR(fallen, 20 * std::log10(30), 1) << l;
  }
}

// Residual echo twice as loud as expected is no talker, ten decibels above it in half of the bands are one.
TEST(Talker, is_heard_above_the_residual_and_not_within_it) {
  for (const Layout &l : all_layouts) {
    Tracked t(l);
    const Bands &bands = t.bg.bands;
    const Signal none(most_bands, 0), background(most_bands, float(l.frame_len)), residual(most_bands, 1e6f);
    TalkerTest &talker = t.s.talker;
    std::minstd_rand random(7);
    // Mean powers of as many bins as the band has, each Gaussian.
    const auto frame = [&](double above, int32_t first) {
      Signal power(most_bands);
      for (int32_t b = 0; b < bands.count; ++b)
        power[size_t(b)] = float((b < first ? 2 : above) * 1e6 / bands.width(b)) *
                           float(std::gamma_distribution<double>(bands.width(b))(random));
      const TalkerEvidence e = evidence_of(bands, power.data(), residual.data(), residual.data(), background.data());
      gather(e, false, false, talker);
      return talker.talking;
    };
    int32_t talked = 0, opened = 0, closed = 0;
    for (int32_t i = 0; i < 2000; ++i)
      talked += frame(2, bands.count);
    EXPECT_EQ(talked, 0) << l;
    while (opened < 50 && !frame(100, bands.count / 2))
      ++opened;
    while (closed < 50 && frame(2, bands.count))
      ++closed;
    EXPECT_LE(opened, 5) << l;
    EXPECT_LE(closed, 25) << l;
    while (!frame(100, bands.count / 2)) {
    }
    gather({100, 100}, false, true, talker);
    EXPECT_FALSE(talker.talking) << "a changed path is no talker";
  }
}

} // namespace
