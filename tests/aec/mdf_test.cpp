// The adaptive filter by itself: what it cancels, keeps, and survives.

#include "qvvoice/dsp/fft.h"
#include "signals.h"

namespace {

using namespace qv::test;

Memories memories(Filter &filter) {
  AecMdfState &st = filter.st;
  const size_t n = filter.n, f = 2 * n, m = size_t(st.swPartNum);
  Memories all = {{st.pfWBg, m * f}, {st.pfWFg, m * f}, {st.pfNearIn, n}, {st.pfProp, m}};
  for (float *values : {st.pfFarSpec, st.pfFarSpec + f, st.pfFarSpec + m * f, st.pfErrTime, st.pfFarTime, st.pfEchoTime,
                        st.pfEchoSpec, st.pfErrSpec, st.pfGrad, st.pfTmp})
    all.emplace_back(values, f);
  for (float *values :
       {st.pfFarPow, st.pfStep, st.pfErrPsd, st.pfEchoPsd, st.pfFarPsd, st.pfErrPsdAvg, st.pfEchoPsdAvg})
    all.emplace_back(values, n + 1);
  for (float *value : {&st.fDavg1, &st.fDavg2, &st.fDvar1, &st.fDvar2, &st.fPey, &st.fPyy, &st.fLeak, &st.fSumAdapt,
                       &st.fMemFar, &st.fMemNear, &st.fMemOut})
    all.emplace_back(value, 1);
  return all;
}

/// Both paths add the reference times the gain.
void give_one_tap(Filter &filter, float gain) {
  const auto f = int32_t(2 * filter.n);
  Signal impulse(2 * filter.n, 0.f);
  impulse[0] = float(f) * gain;
  for (float *path : {filter.st.pfWBg, filter.st.pfWFg})
    VOICE_Fft(impulse.data(), path, f);
}

double reduction_db(const Samples &in, const Samples &out, const Layout &layout, double from, double to) {
  const size_t first = samples(layout, from), last = samples(layout, to);
  return level_db(in, first, last) - level_db(out, first, last);
}

TEST(AdaptiveFilter, cancels_the_echo_whatever_happened_before) {
  struct Case {
    const char *what;
    bool speech, moved, near; // from 5 s on, the near end until 15 s
    double from, to;
  };
  for (const Layout &layout : all_layouts)
    for (const Case &c : {Case{"noise", false, false, false, 4, 5},
                          {"speech", true, false, false, 4, 5},
                          {"a new path", true, true, false, 14, 15},
                          {"after a loud near end", true, false, true, 15, 15.5}}) {
      Filter filter(layout);
      const Signal ref = reference(c.speech, c.to, layout);
      Signal heard = echo_of(ref, layout);
      const Signal moved = echo_of(ref, layout, 4), near = talk(samples(layout, 15), layout.rate, 6000, 6);
      for (size_t i = samples(layout, 5); i < std::min(ref.size(), near.size()); ++i)
        heard[i] = c.moved ? moved[i] : c.near ? heard[i] + near[i] : heard[i];
      const Samples mic = sampled(heard), out = filter.run(mic, sampled(ref));
      EXPECT_GT(reduction_db(mic, out, layout, c.from, c.to), 25.0) << layout << ", " << c.what;
      EXPECT_LE(filter.st.fLeak, c.near ? 1.f : 0.2f) << layout << ", " << c.what;
    }
}

// A foreground that adds a full echo of its own: 50 such frames in a row start the filter again. The clipped
// sample keeps it from adapting.
TEST(AdaptiveFilter, starts_again_after_fifty_frames_of_added_echo) {
  Filter filter(all_layouts[3]);
  give_one_tap(filter, 1);
  Samples mic(320, 0), ref = sampled(white(320, 8000, 1)), out;
  const Samples silent(mic);
  mic[5] = 32000;
  filter.run(mic, silent); // sets the hold; its own update finds no error spectrum
  ref.back() = 0;          // so that the pre-emphasis leaves nothing for the silent frame
  const auto run = [&](int32_t frames, const Samples &far) {
    for (int32_t i = 0; i < frames; ++i)
      out = filter.run(mic, far);
    return filter.st.swDivergeCnt;
  };
  EXPECT_EQ(run(49, ref), 49);
  EXPECT_EQ(run(1, silent), 0);
  EXPECT_EQ(run(49, ref), 49);
  EXPECT_EQ(filter.st.pfWFg[0], 1.f);
  EXPECT_EQ(run(1, ref), 0);
  EXPECT_EQ(filter.st.pfWFg[0], 0.f);
  EXPECT_NE(out, silent) << "this reset does not mute";
}

// Twice the power of full scale over a frame is no signal: at once, not after fifty frames.
TEST(AdaptiveFilter, absurd_energies_mute_and_start_again_at_once) {
  for (const double share : {0.99, 1.01}) {
    Filter filter(all_layouts[3]);
    const Samples mic(320, 0), ref = sampled(white(320, 8000, 1));
    double energy = 0;
    for (size_t i = 0; i < ref.size(); ++i)
      energy += std::pow(ref[i] - (i ? 0.9 * ref[i - 1] : 0), 2);
    const auto gain = float(std::sqrt(share * 640 * 1e9 / energy));
    give_one_tap(filter, gain);
    const bool absurd = share > 1;
    EXPECT_EQ(filter.run(mic, ref) == mic, absurd);
    EXPECT_EQ(filter.st.swFrameCnt, absurd ? 0 : 1);
    EXPECT_EQ(filter.st.swDivergeCnt, absurd ? 0 : 1);
    EXPECT_NEAR(filter.st.pfWFg[0], absurd ? 0 : gain, 1e-4);
  }
}

// After a reset the filter runs as a new one that was given its leakage and its shares.
TEST(AdaptiveFilter, a_reset_keeps_the_leakage_and_the_shares_only) {
  const Layout &layout = all_layouts[2];
  Filter used(layout), fresh(layout);
  const Signal ref = reference(true, 4, layout);
  const Samples far = sampled(ref), mic = sampled(echo_of(ref, layout));
  used.run(mic, far);
  EXPECT_EQ(used.st.swAdapted, 1);
  used.st.swSatHold = 1;
  AEC_MdfReset(&used.st);
  fresh.st.fLeak = used.st.fLeak;
  std::copy_n(used.st.pfProp, 2, fresh.st.pfProp);
  EXPECT_EQ(std::pair(used.st.fPey, used.st.fPyy), std::pair(fresh.st.fPey, fresh.st.fPyy));
  EXPECT_EQ(used.run(mic, far), fresh.run(mic, far));
  EXPECT_EQ(used.st.swFrameCnt, fresh.st.swFrameCnt);
}

TEST(AdaptiveFilter, survives_an_undefined_or_infinite_value_in_any_state) {
  const Layout &layout = all_layouts[0];
  const Signal ref = reference(true, 8, layout), echo = echo_of(ref, layout);
  const Samples far = sampled(ref), mic = sampled(echo + white(echo.size(), 10, 8));
  const size_t hit_at = samples(layout, 3);
  const size_t count = [&] {
    Filter filter(layout);
    return memories(filter).size();
  }();
  for (size_t trial = 0; trial < 2 * count; ++trial) {
    Filter filter(layout);
    filter.run(std::span(mic).first(hit_at), far);
    const std::span<float> memory = memories(filter)[trial / 2];
    memory[memory.size() / 3] = trial % 2 ? NAN : INFINITY;
    Samples out = filter.run(std::span(mic).subspan(hit_at), std::span(far).subspan(hit_at));
    int32_t muted = 0;
    for (size_t at = 0; at < out.size(); at += 128)
      muted += std::count(&out[at], &out[at] + 128, 0) == 128;
    EXPECT_LE(muted, 1) << "memory " << trial / 2;
    EXPECT_TRUE(all_finite(memories(filter))) << "memory " << trial / 2;
    EXPECT_LE(std::ranges::max(out), 2 * std::ranges::max(mic)) << "memory " << trial / 2;
    out.insert(out.begin(), hit_at, 0);
    EXPECT_GT(reduction_db(mic, out, layout, 7, 8), 20.0) << "memory " << trial / 2;
  }
}

} // namespace
