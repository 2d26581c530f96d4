// The adaptive filter by itself: what it cancels, keeps, and survives.

#include <gtest/gtest.h>

#include "signals.h"

namespace {

class Filter {
public:
  explicit Filter(Layout layout) : layout_(layout), services_(layout) {
    const AecMdfPara para = {layout.n, 2 * layout.n, layout.rate};
    AEC_MdfInit(&para, &st);
  }
  ~Filter() { AEC_MdfDestory(&st); }

  Samples frame(const int16_t *mic, const int16_t *ref) {
    Samples out(size_t(layout_.n));
    AEC_MdfProcess(mic, ref, out.data(), &st);
    return out;
  }
  Samples run(const Samples &mic, const Samples &ref) {
    Samples all;
    for (size_t i = 0; i + size_t(layout_.n) <= mic.size(); i += size_t(layout_.n)) {
      const Samples out = frame(mic.data() + i, ref.data() + i);
      all.insert(all.end(), out.begin(), out.end());
    }
    return all;
  }
  Memories memories() {
    const int32_t n = layout_.n, f = 2 * n, m = st.swPartNum;
    Memories all;
    append(all, {st.pfErrTime, st.pfFarTime, st.pfEchoTime, st.pfEchoSpec, st.pfErrSpec, st.pfGrad, st.pfTmp}, f);
    append(all, {st.pfFarSpec, st.pfFarSpec + f, st.pfFarSpec + m * f}, f);
    append(all, {st.pfWBg, st.pfWFg}, m * f);
    append(all, {st.pfFarPow, st.pfStep, st.pfErrPsd, st.pfEchoPsd, st.pfFarPsd, st.pfErrPsdAvg, st.pfEchoPsdAvg},
           n + 1);
    append(all,
           {&st.fDavg1, &st.fDavg2, &st.fDvar1, &st.fDvar2, &st.fPey, &st.fPyy, &st.fLeak, &st.fSumAdapt, &st.fMemFar,
            &st.fMemNear, &st.fMemOut},
           1);
    append(all, {st.pfNearIn}, n);
    append(all, {st.pfProp}, m);
    return all;
  }

  AecMdfState st;

private:
  Layout layout_;
  Services services_;
};

Signal reference(bool speech, int32_t length, Layout layout) {
  return speech ? speech_like(length, layout.rate, 3000.f, 11) : white_noise(length, 3000.f, 12);
}

// Path of three quarters of the filter's length, at -6 dB.
Signal short_path(Layout layout, uint32_t seed) { return room(layout.n * 3 / 2, 0.5f, seed); }

TEST(AdaptiveFilter, cancels_noise_and_speech_at_every_layout) {
  for (const Layout layout : layouts)
    for (const bool speech : {false, true}) {
      Filter filter(layout);
      const Signal ref = reference(speech, layout.samples(5), layout);
      const Samples mic = sampled(through(short_path(layout, 3), ref));
      const Samples out = filter.run(mic, sampled(ref));
      EXPECT_GT(reduction_db(mic, out, layout, 4, 5), 25.0) << layout << (speech ? " speech" : " noise");
      EXPECT_LE(filter.st.fLeak, 0.2f) << layout << (speech ? " speech" : " noise");
      Signal taps(size_t(2 * layout.n));
      VOICE_Ifft(filter.st.pfWBg, taps.data(), 2 * layout.n);
      const auto middle = taps.begin() + layout.n;
      EXPECT_LT(std::abs(*std::max_element(middle, taps.end())), 1e-3f * *std::max_element(taps.begin(), middle))
          << layout << "a partition has N taps";
    }
}

TEST(AdaptiveFilter, passes_the_microphone_while_the_far_end_is_silent) {
  for (const Layout layout : layouts) {
    Filter filter(layout);
    const Samples mic = sampled(speech_like(layout.samples(2), layout.rate, 4000.f, 5));
    const Samples out = filter.run(mic, Samples(mic.size(), 0));
    ASSERT_EQ(out.size(), mic.size());
    for (size_t i = 0; i < mic.size(); ++i)
      ASSERT_NEAR(out[i], mic[i], 1) << layout << " sample " << i; // pre- and de-emphasis, rounded
    EXPECT_TRUE(std::all_of(filter.st.pfWBg, filter.st.pfWBg + 4 * layout.n, [](float w) { return w == 0.f; }));
    EXPECT_EQ(filter.st.fSumAdapt, 0.f);
  }
}

TEST(AdaptiveFilter, follows_a_new_path) {
  for (const Layout layout : layouts) {
    Filter filter(layout);
    const Signal ref = reference(true, layout.samples(10), layout);
    Samples mic = sampled(through(short_path(layout, 3), ref));
    const Samples moved = sampled(through(short_path(layout, 4), ref));
    std::copy(moved.begin() + layout.samples(5), moved.end(), mic.begin() + layout.samples(5));
    const Samples out = filter.run(mic, sampled(ref));
    EXPECT_GT(reduction_db(mic, out, layout, 9, 10), 25.0) << layout;
  }
}

TEST(AdaptiveFilter, a_loud_near_end_leaves_what_was_learnt) {
  for (const Layout layout : layouts) {
    Filter filter(layout);
    const Signal ref = reference(true, layout.samples(16), layout);
    const Signal echo = through(short_path(layout, 3), ref);
    Signal near = speech_like(layout.samples(15), layout.rate, 6000.f, 6);
    std::fill_n(near.begin(), layout.samples(5), 0.f);
    near.resize(echo.size());
    const Samples mic = sampled(echo + near);
    const Samples out = filter.run(mic, sampled(ref));
    EXPECT_GT(reduction_db(mic, out, layout, 4, 5), 25.0) << layout;
    EXPECT_GT(reduction_db(mic, out, layout, 15, 15.5), 25.0) << layout;
  }
}

// The foreground is empty until its first refresh, and takes over the background's echo estimate along the
// rising half of the window within that frame.
TEST(AdaptiveFilter, fades_over_to_a_refreshed_foreground) {
  const Layout layout = {16000, 320};
  Filter filter(layout);
  const Samples ref = sampled(reference(false, layout.samples(1), layout));
  const Samples mic = sampled(through(short_path(layout, 3), reference(false, layout.samples(1), layout)));
  const auto refreshed = [&] {
    return std::any_of(filter.st.pfWFg, filter.st.pfWFg + 1280, [](float w) { return w != 0; });
  };
  for (size_t at = 0; at < mic.size(); at += 320) {
    float memory = filter.st.fMemOut;
    const Samples out = filter.frame(mic.data() + at, ref.data() + at);
    if (!refreshed())
      continue;
    for (size_t i = 0; i < 320; ++i) {
      memory = filter.st.pfNearIn[i] - filter.st.pfWindow[i] * filter.st.pfEchoTime[320 + i] + 0.9f * memory;
      ASSERT_NEAR(out[i], memory, 0.6) << "sample " << i;
    }
    return;
  }
  FAIL() << "the foreground was never refreshed";
}

TEST(AdaptiveFilter, clipping_holds_the_next_update_off) {
  const Layout layout = {8000, 160};
  const Signal ref = reference(false, layout.samples(2), layout);
  const Samples far = sampled(ref), mic = sampled(through(short_path(layout, 3), ref));
  struct Case {
    int16_t sample;
    bool held;
  };
  for (const auto &[sample, held] : {Case{32000, true}, {-32000, true}, {31999, false}, {-31999, false}}) {
    Filter filter(layout);
    filter.run(mic, far);
    Samples clipped(mic.begin(), mic.begin() + 160);
    clipped[77] = sample;
    filter.frame(clipped.data(), far.data());
    EXPECT_EQ(filter.st.swSatHold, held ? 1 : 0) << sample;
    const Signal before(filter.st.pfWBg, filter.st.pfWBg + 640);
    filter.frame(mic.data() + 160, far.data() + 160);
    double moved = 0;
    for (size_t i = 0; i < before.size(); ++i)
      moved = std::max(moved, std::fabs(double(filter.st.pfWBg[i] - before[i])));
    EXPECT_EQ(moved < 1e-5, held) << sample << " moved a weight by " << moved; // the constraint rounds
    EXPECT_EQ(filter.st.swSatHold, 0) << sample;
  }
}

// A foreground that adds a full echo of its own: 50 such frames in a row start the filter again. The clipped
// sample keeps it from adapting.
TEST(AdaptiveFilter, starts_again_after_fifty_frames_of_added_echo) {
  const Layout layout = {16000, 320};
  Filter filter(layout);
  for (float *weights : {filter.st.pfWBg, filter.st.pfWFg}) {
    weights[0] = weights[639] = 1.f; // spectrum of a unit impulse
    for (int32_t k = 1; k < 320; ++k)
      weights[2 * k - 1] = 1.f;
  }
  Samples mic(320, 0);
  mic[5] = 32000;
  filter.frame(mic.data(), Samples(320, 0).data()); // sets the hold; its own update finds no error spectrum
  Samples ref = sampled(white_noise(320, 8000.f, 1)), silent(320, 0);
  ref.back() = 0; // so that the pre-emphasis leaves nothing for the silent frame
  for (int32_t i = 0; i < 49; ++i)
    filter.frame(mic.data(), ref.data());
  EXPECT_EQ(filter.st.swDivergeCnt, 49);
  filter.frame(mic.data(), silent.data());
  EXPECT_EQ(filter.st.swDivergeCnt, 0);
  for (int32_t i = 0; i < 49; ++i)
    filter.frame(mic.data(), ref.data());
  EXPECT_EQ(filter.st.pfWFg[0], 1.f);
  const Samples out = filter.frame(mic.data(), ref.data());
  EXPECT_EQ(filter.st.swFrameCnt, 0);
  EXPECT_EQ(filter.st.pfWFg[0], 0.f);
  EXPECT_NE(out, silent) << "this reset does not mute";
}

TEST(AdaptiveFilter, survives_an_undefined_or_infinite_value_in_any_state) {
  const Layout layout = {8000, 128};
  const Signal ref = reference(true, layout.samples(8), layout);
  const Signal echo = through(short_path(layout, 3), ref);
  const Samples far = sampled(ref), mic = sampled(echo + white_noise(int32_t(echo.size()), 10.f, 8));
  const auto hit_at = size_t(layout.samples(3));
  const size_t memory_count = Filter(layout).memories().size();
  for (size_t trial = 0; trial < 2 * memory_count; ++trial) {
    Filter filter(layout);
    filter.run({mic.begin(), mic.begin() + hit_at}, {far.begin(), far.begin() + hit_at});
    const std::span<float> memory = filter.memories()[trial / 2];
    memory[memory.size() / 3] = trial % 2 ? nan_value : infinity;
    Samples out = filter.run({mic.begin() + hit_at, mic.end()}, {far.begin() + hit_at, far.end()});
    int32_t muted = 0;
    for (size_t at = 0; at < out.size(); at += 128)
      muted += std::all_of(out.begin() + at, out.begin() + at + 128, [](int16_t x) { return x == 0; });
    EXPECT_LE(muted, 1) << "memory " << trial / 2;
    EXPECT_TRUE(all_finite(filter.memories())) << "memory " << trial / 2;
    EXPECT_LE(std::ranges::max(out), 2 * std::ranges::max(mic)) << "memory " << trial / 2;
    out.insert(out.begin(), hit_at, 0);
    EXPECT_GT(reduction_db(mic, out, layout, 7, 8), 20.0) << "memory " << trial / 2;
  }
}

} // namespace
