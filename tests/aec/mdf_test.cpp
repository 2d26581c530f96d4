// The adaptive filter by itself: what it cancels, keeps, and survives.

#include "qvvoice/dsp/fft.h"
#include "signals.h"

namespace {

using namespace qv::test;

struct Filter {
  explicit Filter(const Layout &layout) : n(size_t(layout.frame_len)) {
    start(layout);
    const AecMdfPara para = {layout.frame_len, 2 * layout.frame_len, layout.rate};
    AEC_MdfInit(&para, &st);
  }
  ~Filter() { AEC_MdfDestory(&st); }

  Samples run(std::span<const int16_t> mic, std::span<const int16_t> ref) {
    Samples out(mic.size());
    for (size_t at = 0; at < mic.size(); at += n)
      AEC_MdfProcess(&mic[at], &ref[at], &out[at], &st);
    return out;
  }
  Memories memories() {
    const size_t f = 2 * n, m = size_t(st.swPartNum);
    Memories all = {{st.pfWBg, m * f}, {st.pfWFg, m * f}, {st.pfNearIn, n}, {st.pfProp, m}};
    for (float *values : {st.pfFarSpec, st.pfFarSpec + f, st.pfFarSpec + m * f, st.pfErrTime, st.pfFarTime,
                          st.pfEchoTime, st.pfEchoSpec, st.pfErrSpec, st.pfGrad, st.pfTmp})
      all.emplace_back(values, f);
    for (float *values :
         {st.pfFarPow, st.pfStep, st.pfErrPsd, st.pfEchoPsd, st.pfFarPsd, st.pfErrPsdAvg, st.pfEchoPsdAvg})
      all.emplace_back(values, n + 1);
    for (float *value : {&st.fDavg1, &st.fDavg2, &st.fDvar1, &st.fDvar2, &st.fPey, &st.fPyy, &st.fLeak, &st.fSumAdapt,
                         &st.fMemFar, &st.fMemNear, &st.fMemOut})
      all.emplace_back(value, 1);
    return all;
  }

  const size_t n;
  AecMdfState st;
};

double reduction_db(const Samples &in, const Samples &out, const Layout &layout, double from, double to) {
  double energy_in = 1, energy_out = 1;
  for (auto i = size_t(samples(layout, from)); i < size_t(samples(layout, to)); ++i) {
    energy_in += double(in[i]) * in[i];
    energy_out += double(out[i]) * out[i];
  }
  return 10 * std::log10(energy_in / energy_out);
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
                          {"a new path", true, true, false, 9, 10},
                          {"after a loud near end", true, false, true, 15, 15.5}}) {
      Filter filter(layout);
      const Signal ref = reference(c.speech, c.to, layout);
      Signal heard = echo_of(ref, layout);
      const Signal moved = echo_of(ref, layout, 4), near = speech_like(samples(layout, 15), layout.rate, 6000.f, 6);
      for (size_t i = size_t(samples(layout, 5)); i < std::min(ref.size(), near.size()); ++i)
        heard[i] = c.moved ? moved[i] : c.near ? heard[i] + near[i] : heard[i];
      const Samples mic = sampled(heard), out = filter.run(mic, sampled(ref));
      EXPECT_GT(reduction_db(mic, out, layout, c.from, c.to), 25.0) << layout << ", " << c.what;
      EXPECT_LE(filter.st.fLeak, c.near ? 1.f : 0.2f) << layout << ", " << c.what;
    }
}

TEST(AdaptiveFilter, clipping_holds_the_next_update_off) {
  const Layout &layout = all_layouts[1];
  const Signal ref = reference(false, 2, layout);
  const Samples far = sampled(ref), mic = sampled(echo_of(ref, layout));
  for (const auto &[sample, held] : {std::pair{32000, true}, {-32000, true}, {31999, false}, {-31999, false}}) {
    Filter filter(layout);
    filter.run(mic, far);
    Samples clipped(mic.begin(), mic.begin() + 160);
    clipped[77] = int16_t(sample);
    filter.run(clipped, far);
    EXPECT_EQ(filter.st.swSatHold, held ? 1 : 0) << sample;
    const Signal before(filter.st.pfWBg, filter.st.pfWBg + 640);
    filter.run(std::span(mic).subspan(160, 160), std::span(far).subspan(160));
    float moved = 0;
    for (size_t i = 0; i < before.size(); ++i)
      moved = std::max(moved, std::fabs(filter.st.pfWBg[i] - before[i]));
    EXPECT_EQ(moved < 1e-5f, held) << sample << " moved a weight by " << moved; // the constraint rounds
    EXPECT_EQ(filter.st.swSatHold, 0) << sample;
  }
}

// A foreground that adds a full echo of its own: 50 such frames in a row start the filter again. The clipped
// sample keeps it from adapting.
TEST(AdaptiveFilter, starts_again_after_fifty_frames_of_added_echo) {
  Filter filter(all_layouts[3]);
  Signal impulse(640, 0.f);
  impulse[0] = 640.f;
  VOICE_Fft(impulse.data(), filter.st.pfWBg, 640);
  VOICE_Fft(impulse.data(), filter.st.pfWFg, 640);
  Samples mic(320, 0), ref = sampled(white_noise(320, 8000.f, 1)), out;
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
    const Samples mic(320, 0), ref = sampled(white_noise(320, 8000.f, 1));
    double energy = 0;
    for (size_t i = 0; i < ref.size(); ++i)
      energy += std::pow(ref[i] - (i ? 0.9 * ref[i - 1] : 0), 2);
    const auto gain = float(std::sqrt(share * 640 * 1e9 / energy));
    Signal impulse(640, 0.f);
    impulse[0] = 640.f * gain;
    VOICE_Fft(impulse.data(), filter.st.pfWBg, 640);
    VOICE_Fft(impulse.data(), filter.st.pfWFg, 640);
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
  const Samples far = sampled(reference(false, 2, layout)), mic = sampled(echo_of(reference(false, 2, layout), layout));
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
  const Samples far = sampled(ref), mic = sampled(echo + white_noise(int32_t(echo.size()), 10.f, 8));
  const auto hit_at = size_t(samples(layout, 3));
  for (size_t trial = 0; trial < 2 * Filter(layout).memories().size(); ++trial) {
    Filter filter(layout);
    filter.run(std::span(mic).first(hit_at), far);
    const std::span<float> memory = filter.memories()[trial / 2];
    memory[memory.size() / 3] = trial % 2 ? NAN : INFINITY;
    Samples out = filter.run(std::span(mic).subspan(hit_at), std::span(far).subspan(hit_at));
    int32_t muted = 0;
    for (size_t at = 0; at < out.size(); at += 128)
      muted += std::count(&out[at], &out[at] + 128, 0) == 128;
    EXPECT_LE(muted, 1) << "memory " << trial / 2;
    EXPECT_TRUE(all_finite(filter.memories())) << "memory " << trial / 2;
    EXPECT_LE(std::ranges::max(out), 2 * std::ranges::max(mic)) << "memory " << trial / 2;
    out.insert(out.begin(), hit_at, 0);
    EXPECT_GT(reduction_db(mic, out, layout, 7, 8), 20.0) << "memory " << trial / 2;
  }
}

} // namespace
