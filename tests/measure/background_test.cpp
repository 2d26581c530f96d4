// Echo in a background, the background by itself, and what follows on changes: outputs made by hand.

#include <numbers>

#include "measure/call.h"
#include "measure/print.h"
#include "measure/third_octaves.h"

namespace qv::tool::measure {
namespace {

/// Far end alone from 2 s to 16 s, nobody before and after; near end 8 dB above the far, but it never talks.
struct FarCall : Call {
  FarCall() {
    for (size_t i = 0; i < length; ++i)
      near[i] = 0, echo[i] = double(i) / rate >= 2 && double(i) / rate < 16 ? gain_from_db(-30) * loud[i] : 0;
    subject.near = near;
    subject.echo = echo;
    subject.noise = noise;
    subject.mic = to_samples(mix(0, 0));
    *subject.truth = {Intervals{{2, 16}}, Intervals(), {{0, 0.05, 0}}, {}};
  }
  Signal loud = white_noise(length, Random(7));
};

Signal tone(double hz, double db) {
  Signal signal(length);
  for (size_t i = 0; i < length; ++i)
    signal[i] = std::numbers::sqrt2 * gain_from_db(db) * std::sin(2 * std::numbers::pi * hz * double(i) / rate);
  return signal;
}

/// Adds it to the output while the far end talks.
void add(FarCall &call, const Signal &signal) {
  for (size_t i = 2 * rate; i < 16 * rate; ++i)
    call.out[i] += signal[i];
}

// Background at -70 dBFS, echo at -30. A quarter second of the noise is known to 1 / sqrt(4000 Hz * 0.25 s): 15 dB
// down.
TEST(Residual, echo_is_told_from_the_background_down_to_the_accuracy_of_its_level) {
  FarCall call;
  const double limit = 40 + 15;
  const struct {
    double echo_db, reduction, tolerance;
  } cases[] = {{-26, 26, 0.2}, {-40, 40, 0.3}, {-46, 46, 0.6}, {-90, limit, 1}};
  for (const auto &one : cases) {
    call.out = call.mix(one.echo_db, 0);
    const Results r = call.measured();
    expect(r, {Is(&R::echo_reduction_db, one.reduction, one.tolerance),
               Is(&R::echo_reduction_first_db, one.reduction, 2 * one.tolerance),
               Is(&R::residual_over_background_db, 40 - one.reduction, one.tolerance),
               Is(&R::echo_reduction_limit_db, limit, 1)});
  }
  const auto whole = call.subject.truth->near;
  for (int fifth = 3; fifth < 95; ++fifth) // pauses too short to tell how far a quarter second goes astray
    if (fifth < 10 || fifth >= 80)
      call.subject.truth->near->push_back({0.2 * fifth, 0.2 * fifth + 0.01});
  expect(call.measured(), {Is(&R::echo_reduction_db, limit, 1)});
  call.subject.truth->near = whole;
  call.out = call.mix(-200, 0);
  add(call, tone(500, -76)); // 8.8 dB above the third octave's noise, 6 dB below the whole
  expect(call.measured(), {Is(&R::echo_reduction_db, 46, 0.5)});
  call.apply(2, 16, -200);
  add(call, tone(500, -76)); // nor does a background that is weaker elsewhere hide it
  expect(call.measured(), {Is(&R::echo_reduction_db, 46.5, 0.5)});
  call.apply(2, 16, -200); // a dead line has no more than rounding
  expect(call.measured(), {Is(&R::echo_reduction_db, 71.1, 0.3), Is(&R::residual_over_background_db, -31.1, 0.3)});
  call.subject.noise = Signal(length); // nothing to take out, though near-end speech may be left in the pauses
  call.out = call.mix(-60, -10);
  expect(call.measured(), {Is(&R::echo_reduction_db, -*to_db(from_db(-60) + from_db(-50)), 0.3)});
  expect_gaps(call.measured(), Gap::absent, {&R::residual_over_background_db});
  call.subject.echo.reset();
  expect_gaps(call.measured(), Gap::unknown, {&R::echo_reduction_db, &R::residual_over_background_db});
}

TEST(BackgroundStep, is_the_level_of_single_talk_over_that_of_silence) {
  FarCall call;
  call.out = call.mix(-200, 0);
  expect(call.measured(),
         {Is(&R::background_step_db, 0, 0.1), Is(&R::background_step_median_db, 0, 0.2),
          Is(&R::background_band_step_db, 0.3, 0.3), Is(&R::noise_step_db, 0, 0.1), Is(&R::noise_snr_db, 40, 0.1)});
  call.apply(2, 16, -4);
  expect(call.measured(), {Is(&R::background_step_db, -4, 0.1), Is(&R::background_step_median_db, -4, 0.2),
                           Is(&R::background_band_step_db, 4.3, 0.3), Is(&R::noise_step_db, 0, 0.1)});
  call.out = call.mix(-200, 0);
  // Nine times the noise of a third octave, 231 of 4000 Hz.
  add(call, tone(1000, -70 + *to_db(9 * 231.0 / 4000)));
  expect(call.measured(),
         {Is(&R::background_step_db, *to_db(1 + 9 * 231.0 / 4000), 0.1), Is(&R::background_band_step_db, 10, 0.4)});
  call.out = call.mix(-200, 0);
  add(call, tone(200, -60)); // below 300 Hz only the whole counts
  expect(call.measured(), {Is(&R::background_step_db, 10.4, 0.1), Is(&R::background_band_step_db, 0.4, 0.4)});
  call.out = call.mix(-200, 0);
  call.apply(2, 3, 30);   // not yet settled
  call.apply(10, 11, 30); // a burst counts for its level, one second of thirteen from 3 s on
  expect(call.measured(),
         {Is(&R::background_step_db, *to_db(1 + 999.0 / 13), 0.2), Is(&R::background_step_median_db, 0, 0.2)});
}

TEST(BackgroundStep, needs_a_background_and_time_to_hear_it) {
  FarCall call;
  const std::vector steps = {&R::background_step_db, &R::background_step_median_db, &R::background_band_step_db};
  call.out = call.mix(0, -25); // -95 dBFS, 6 dB above rounding
  expect_gaps(call.measured(), Gap::absent, steps);
  call.out = call.mix(0, 0);
  call.subject.truth->far = Intervals{{1, 19.98}}; // 0.48 s of silence from 0.5 s on
  expect_gaps(call.measured(), Gap::absent, steps);
  call.subject.truth->far = Intervals{{2, 3.4}};
  expect_gaps(call.measured(), Gap::absent, steps);
  call.subject.truth->far = Intervals{{2, 16}};
  // What is left of a talker in his pauses is not the background: -60 dBFS at times.
  for (size_t i = 5 * rate; i < length; ++i)
    call.near[i] = i < 7 * rate || i >= 17 * rate ? gain_from_db(-60) * call.loud[i] : 0;
  call.subject.near = call.near;
  call.out = call.mix(-200, 0);
  expect(call.measured(), {Is(&R::background_step_db, 0, 0.2)});
}

TEST(Changes, are_followed_for_three_seconds_of_far_end_talk_or_until_the_next) {
  FarCall call;
  scene::Truth &truth = *call.subject.truth;
  truth.far = Intervals{{2, 5}, {6, 16}};
  truth.events = {{4.01, false, true}, {8, true, false}, {9, false, false}, {14, false, false}};
  truth.delay = {{0, 0.05, 0}, {8, 0.03, 0}};
  truth.no_reference = {{8.5, 9}};
  truth.muted = {{13, 14}};
  call.out = call.mix(-30, -50);
  call.apply(4.01, 4.51, 20); // 10 dB for half a second, then 30 dB
  call.apply(8.25, 9, 30);    // 30 dB in the first quarter, 0 in the second; then the reference is missing
  call.apply(14, 16, 30);
  const Results r = call.measured();
  // Quarters from 4.01 s: two at 10 dB, one at 30, one of which 0.24 s are talk at 30, then 2.01 s or nine at 30;
  // from 8 s: 30 and 0; from 9 s: twelve at 30; from 14 s: eight at 0.
  expect(r, {Is(&R::erle_after_change_db, (2 * 10 + 10 * 30 + 30 + 0 + 12 * 30) / 34.0, 0.3)});
  const struct {
    const char *kind;
    double jump, erle;
  } expected[] = {{"path", 0, 320 / 12.0}, {"delay", -20, 15}, {"no_reference", 0, 30}, {"muted", 0, 0}};
  ASSERT_EQ(r.recoveries.size(), 4u);
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_STREQ(r.recoveries[i].kind, expected[i].kind);
    EXPECT_NEAR(r.recoveries[i].jump, expected[i].jump, 1e-6);
    EXPECT_NEAR(r.recoveries[i].erle.number(), expected[i].erle, 0.5) << i;
  }
  EXPECT_EQ(r.recoveries[2].seconds.number(), 0);
  EXPECT_EQ(r.recoveries[3].seconds.gap(), Gap::never);
  expect_gaps(r, Gap::never, {&R::path_recovery_s});
}

// Neither canceller nor judge can do anything about an echo without its reference, or a microphone that is silent.
TEST(Changes, nothing_is_measured_while_a_stream_is_missing) {
  FarCall call;
  call.out = call.mix(-40, 0);
  const Results whole = call.measured();
  call.subject.truth->no_reference = {{5, 8}};
  call.subject.truth->muted = {{17, 18}};
  call.apply(5, 8, 40);
  call.apply(17, 18, -200);
  expect(call.measured(), {Is(&R::erle_far_db, whole.erle_far_db.number(), 0.1),
                           Is(&R::erle_settled_db, whole.erle_settled_db.number(), 0.1), Is(&R::echo_bursts_percent, 0),
                           Is(&R::output_noise_dbfs, -70, 0.1), Is(&R::echo_reduction_db, 40, 0.3)});
}

TEST(Print, recoveries_and_the_noise_are_in_the_json) {
  FarCall call;
  call.subject.truth->events = {{10, true, false}, {19, false, true}};
  const auto json = [&] {
    const Output output = call.output();
    return to_json(call.subject, output, measure(Known(call.subject), output));
  };
  call.out = call.mix(-30, 0);
  const Json one = json();
  EXPECT_EQ(one["noise"], "low");
  ASSERT_EQ(one["recoveries"].size(), 2u);
  EXPECT_EQ(one["recoveries"][0]["kind"], "delay");
  EXPECT_EQ(one["recoveries"][0]["recovery_s"], 0);
  EXPECT_TRUE(one["recoveries"][1]["recovery_s"].is_null());
  EXPECT_EQ(one["recoveries"][1]["gap"], text_of(Gap::absent)) << "no far-end talk comes after it";
  scale(*call.subject.noise, 11); // 19.2 dB below the echo
  EXPECT_EQ(json()["noise"], "high");
  call.subject.noise.reset();
  EXPECT_TRUE(json()["noise"].is_null());
}

TEST(ThirdOctaves, hold_the_whole_signal_each_in_its_band) {
  const std::vector<bool> wanted = {false, false, true, false};
  for (const int hz : {8000, 16000}) {
    const std::vector<double> centres = third_octave_centres(hz);
    EXPECT_NEAR(centres.front(), 125, 1e-9);
    EXPECT_NEAR(centres.back(), hz == 8000 ? 3174.8 : 6349.6, 0.1);
    std::vector<double> tones = centres;
    tones.insert(tones.end(), {0.0, hz / 2.0}); // their band is the first, and the last
    for (size_t i = 0; i < tones.size(); ++i) {
      Signal signal(size_t(hz) / 10);
      for (size_t k = 0; k < signal.size(); ++k)
        signal[k] = 0.1 * std::cos(2 * std::numbers::pi * tones[i] * double(k) / hz);
      const auto powers = third_octaves(signal, wanted, hz);
      EXPECT_TRUE(powers[0].empty());
      double sum = 0;
      for (const double one : powers[2])
        sum += one;
      const double expected = i < centres.size() ? 0.005 : 0.01;
      EXPECT_NEAR(sum, expected, 0.01 * expected) << tones[i];
      const size_t band = i < centres.size() ? i : tones[i] > 0 ? centres.size() - 1 : 0;
      EXPECT_GT(powers[2][band], (tones[i] > 200 ? 0.97 : 0.6) * expected) << tones[i];
    }
  }
}

} // namespace
} // namespace qv::tool::measure
