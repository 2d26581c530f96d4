// Recordings and outputs made by hand, whose measures are known by construction.

#include <numbers>

#include "measure/call.h"
#include "measure/talk.h"
#include "para/words.h"
#include "signal/activity.h"
#include "signal/correlation.h"

namespace qv::tool::measure {
namespace {

TEST(Measure, an_output_like_the_microphone_changes_nothing) {
  const Results r = Call().measured(); // near end over background noise, the limit of 35 dB, near end over echo
  expect(r, {Is(&R::si_sdr_near_db, 40, 0.2), Is(&R::seg_snr_near_db, 35, 0.1), Is(&R::si_sdr_double_db, 0, 0.2),
             Is(&R::mic_si_sdr_double_db, r.si_sdr_double_db.number(), 0.01), Is(&R::erle_far_db, 0, 1e-3),
             Is(&R::erle_double_db, 0, 0.1), Is(&R::near_level_db, 0, 0.01), Is(&R::noise_attenuation_db, 0, 0.05),
             Is(&R::estoi_near, 1, 0.02), Is(&R::estoi_gain_double, 0, 0.001), Is(&R::onsets_lost_percent, 0),
             Is(&R::near_lost_percent, 0), Is(&R::near_lost_alone_percent, 0), Is(&R::echo_bursts_percent, 100),
             Is(&R::delay_heard_ms, 50, 0.1), Is(&R::delay_true_ms, 50), Is(&R::mic_clipped_percent, 0)});
  expect_gaps(r, Gap::never, {&R::time_to_20_db_s});
}

TEST(Measure, echo_is_measured_by_its_definition) {
  Call call;
  call.out = call.mix(-26, 0);
  call.apply(2, 3.5, 26); // through for 1.5 s, with the noise
  call.apply(5, 5.5, 10); // then a burst, 16 dB down
  Results r = call.measured();
  const double through = 1.5 / 6, burst = 0.5 / 6, rest = 1 - through - burst;
  expect(r, {Is(&R::erle_far_db, -*to_db(through + burst * from_db(-16) + rest * from_db(-26)), 0.25),
             Is(&R::residual_echo_dbfs, -30 - r.erle_far_db.number(), 0.1), Is(&R::time_to_20_db_s, 1.5, 0),
             Is(&R::erle_first_db, 0, 0.2), Is(&R::erle_settled_db, 0.1 * 0 + 0.1 * 16 + 0.8 * 26, 0.2),
             Is(&R::echo_bursts_percent, 20, 0.01), Is(&R::erle_double_db, 26, 0.3)});
  for (const Quarter &quarter : r.quarters)
    EXPECT_EQ(quarter.erle.has_value(),
              (quarter.time >= 2 && quarter.time < 8) || (quarter.time >= 12 && quarter.time < 18));

  call.out = call.mix(-14, 27); // echo at -44 dBFS below noise at -43 is not heard
  expect(call.measured(), {Is(&R::echo_bursts_percent, 0, 0)});

  *call.subject.truth = {Intervals{{2, 18}}, Intervals(), {}, {{10, false, true}}};
  call.out = white_noise(length, Random(4));
  call.apply(0, 20, -30);
  call.subject.mic = to_samples(call.out);
  call.apply(0, 10, -25);
  call.apply(12.25, 20, -25);
  expect(call.measured(), {Is(&R::path_recovery_s, 2.25, 0)});
  call.apply(10, 20, 25);
  expect_gaps(call.measured(), Gap::never, {&R::path_recovery_s});
}

TEST(Measure, losses_noise_and_clipping_are_found) {
  Call call;
  call.subject.truth->near = Intervals{{8, 12}, {12, 15}, {15, 18}};
  call.apply(12, 12.1, -20);    // one onset of three, and 5 of 300 frames
  call.apply(16.5, 17.1, -200); // 30 of 300 frames
  expect(call.measured(),
         {Is(&R::onsets_lost_percent, 100.0 / 3, 1e-6), Is(&R::near_lost_percent, 100 * 35 / 300.0, 2.5),
          Is(&R::digital_silence_percent, 100 * 0.6 / 20, 0.01), Is(&R::near_lost_alone_percent, 0, 0)});
  call.apply(8, 12, -6);
  call.apply(9, 9.4, -20); // 20 of 200 frames
  expect(call.measured(), {Is(&R::near_lost_alone_percent, 10, 2)});
  call.apply(9, 9.4, 20);
  expect(call.measured(),
         {Is(&R::near_level_db, -6, 0.01), Is(&R::si_sdr_near_db, 40, 0.2)}); // a scale is no distortion

  call.out = call.mix(0, 0);
  call.apply(0, 20, -12);
  call.subject.ref[100] = INT16_MAX;
  call.subject.ref[101] = INT16_MIN;
  expect(call.measured(),
         {Is(&R::noise_attenuation_db, 12, 0.05), Is(&R::output_noise_dbfs, -82, 0.2),
          Is(&R::ref_clipped_percent, 100 * 2 / (20.0 * rate), 1e-9), Is(&R::out_clipped_percent, 0, 0)});
}

struct Traced {
  int delay, later; ///< samples, until `jump` s and from then on
  double jump, share, recovery, found;
  std::optional<std::pair<int, int>> filter = {}; ///< first and number of the state-space canceller's taps, in use

  /// With a trace of 20 ms frames.
  Output output(const Call &call) const {
    Output output = call.output();
    output.frame_len = 160;
    for (int k = 0; k < 1000; ++k) {
      QvVoiceTrace trace{};
      trace.echo_delay = k * 0.02 < jump ? delay : later;
      trace.tx_agc_gain = 2;
      trace.linear_erle_db = 17;
      trace.state_space = filter.has_value();
      std::tie(trace.filter_delay, trace.filter_length) = filter.value_or(std::pair(0, 0));
      output.trace.push_back(trace);
      output.frame_seconds.push_back(k == 500 ? 0.01 : 0.001);
    }
    return output;
  }
};

// Catches a reach that is taken from the delay of the highest tap, or from the other canceller's two frames.
TEST(Measure, delay_found_against_true) {
  Call call; // true delay 400 samples; the filter of the one canceller reaches 320 samples
  call.subject.truth->events = {{8, true, false}};
  for (const Traced &one : {Traced{400, 320, 8, 100, 0, 100},
                            {80, 81, 10, 50, 2, 0},
                            {401, 400, 15, 25, 7, 100},
                            {500, 600, 8, 0, NAN, 0},
                            {400, 400, 0, 100, 0, 100, {{0, 1600}}},
                            {700, 700, 0, 100, 0, 0, {{0, 1600}}},
                            {480, 480, 0, 100, 0, 100, {{400, 100}}},
                            {401, 401, 0, 0, NAN, 100, {{401, 1600}}},
                            {320, 320, 0, 0, NAN, 100, {{0, 400}}}}) {
    const Results r = measure(call.subject, one.output(call));
    expect(r, {Is(&R::delay_in_reach_percent, one.share, 0.01), Is(&R::delay_found_percent, one.found, 0.01),
               Is(&R::delay_found_ms, one.later / 8.0, 1e-9), Is(&R::agc_gain_db, 6.02, 0.01),
               Is(&R::erle_linear_db, 17, 0), Is(&R::real_time_factor, (0.001 * 999 + 0.01) / 20, 1e-9),
               Is(&R::worst_frame_percent, 50, 1e-9)});
    if (std::isnan(one.recovery))
      expect_gaps(r, Gap::never, {&R::delay_recovery_s});
    else
      expect(r, {Is(&R::delay_recovery_s, one.recovery, 1e-9)});
  }
}

TEST(Measure, what_is_not_known_has_no_number) {
  Call call;
  call.subject.truth.reset();
  call.subject.near.reset();
  call.subject.echo.reset();
  Results r = call.measured();
  expect_gaps(r, Gap::unknown,
              {&R::erle_far_db, &R::time_to_20_db_s, &R::near_level_db, &R::estoi_double, &R::noise_attenuation_db,
               &R::delay_true_ms, &R::onsets_lost_percent, &R::agc_gain_db, &R::real_time_factor, &R::delay_found_ms});
  expect(r, {Is(&R::erle_heard_db, 0, 1e-3), Is(&R::delay_heard_ms, 50, 0.1)}); // the reference is there

  call.subject.near = call.subject.echo = call.out = Signal(length);
  call.subject.ref = call.subject.mic = to_samples(call.out);
  call.subject.truth = scene::Truth{Intervals(), Intervals(), {{0, 0.05, 0}}, {}};
  r = call.measured();
  expect_gaps(r, Gap::absent,
              {&R::erle_far_db, &R::near_level_db, &R::si_sdr_near_db, &R::noise_attenuation_db, &R::delay_heard_ms,
               &R::mic_level_dbfs, &R::out_level_dbfs, &R::near_lost_percent, &R::delay_in_reach_percent,
               &R::delay_found_percent});
  expect(r, {Is(&R::digital_silence_percent, 100, 0)});
}

// The gain is the library's own: a call through it, louder by an AGC that adds 12 dB, gives the same plain output.
TEST(Output, the_gain_of_the_agc_is_taken_out) {
  const Call call;
  const auto measured = [&](double gain) {
    qv::tool::Setup setup = make_setup(std::nullopt, rate, 20);
    const std::pair<const char *, double> values[] = {{"tx.cng.enable", 0}, // comfort noise comes behind the AGC
                                                      {"tx.agc.enable", 1},          {"tx.agc.knee_high_db", 0},
                                                      {"tx.agc.knee_gain_db", gain}, {"tx.agc.knee_low_db", -90},
                                                      {"tx.agc.slope_mid", 1}};
    for (const auto &[name, value] : values)
      set_value(*para::find_field(name), setup.para, 0, value);
    return measure(call.subject, run_library(call.subject, setup));
  };
  const Results plain = measured(0);
  expect(measured(12),
         {Is(&R::agc_gain_db, 12, 0.1), Is(&R::near_level_sent_db, plain.near_level_sent_db.number() + 12, 0.1),
          Is(&R::near_level_db, plain.near_level_db.number(), 0.1),
          Is(&R::erle_far_db, plain.erle_far_db.number(), 0.5)});
}

// A steady tone is active all the time. One that is off for half of the time counts for the on half and 200 ms of
// hangover with the decay of the envelope: 10 log10(10 / 10.3) to 10 log10(10 / 10.6).
TEST(Activity, counts_the_talk_and_200_ms_beyond) {
  Signal tone(length);
  for (size_t i = 0; i < length; ++i)
    tone[i] = 0.1 * std::sin(2 * std::numbers::pi * 440 * double(i) / rate);
  const double full = 20 * std::log10(0.1 / std::sqrt(2));
  EXPECT_NEAR(*active_level_db(tone, rate), full, 0.05);
  std::fill(tone.begin() + length / 2, tone.end(), 0);
  EXPECT_NEAR(*active_level_db(tone, rate), full - 0.2, 0.1);
  EXPECT_FALSE(active_level_db(Signal(rate), rate)) << "silence has no level";
  EXPECT_FALSE(active_level_db(Signal(), rate));
  std::fill_n(tone.begin(), rate, 0);
  const auto found = intervals(activity(tone, rate));
  ASSERT_EQ(found.size(), 1u);
  EXPECT_NEAR(found[0].begin, 1.0, 1e-9);
  EXPECT_NEAR(found[0].end, 10.2, 1e-9);
}

TEST(Signals, parts_quantiles_and_flags_agree_with_hand_computed_numbers) {
  const std::vector<int16_t> samples = {-32768, 16384, 8192};
  const Signal signal = {-1, 0.5, 0.25};
  EXPECT_EQ(to_signal(samples), signal);
  const struct {
    std::ptrdiff_t begin;
    Signal part;
  } cases[] = {{0, {-1, 0.5}}, {-1, {0, -1}}, {2, {0.25, 0}}, {3, {0, 0}}, {-2, {0, 0}}, {-9, {0, 0}}, {9, {0, 0}}};
  for (const auto &one : cases) {
    EXPECT_EQ(excerpt(signal, one.begin, 2), one.part) << one.begin;
    EXPECT_EQ(excerpt(SampleView(samples), one.begin, 2), one.part) << one.begin;
  }
  EXPECT_EQ(excerpt(SampleView(samples), -1, 5), (Signal{0, -1, 0.5, 0.25, 0}));
  for (const auto &[share, value] : {std::pair(0.0, 1.0), {0.1, 1.3}, {0.5, 2.5}, {1.0, 4.0}})
    EXPECT_DOUBLE_EQ(quantile({4, 1, 3, 2}, share), value) << share;
  EXPECT_EQ(quantile({7}, 0.5), 7);
  // Middles at 5, 15, .. 65 ms; the intervals overlap, in any order, and reach beyond both ends.
  EXPECT_EQ(flags({{0.052, 9}, {0.012, 0.03}, {-1, 0.008}, {0.02, 0.04}}, 7),
            (std::vector<bool>{true, true, true, true, false, true, true}));
}

// Microphone and reference are moved by the delay that is heard, either way.
TEST(Activity, of_the_far_end_follows_the_delay_where_no_truth_tells) {
  Call call;
  call.subject.truth.reset();
  for (const double delay : {0.05, -0.5}) {
    const auto found = intervals(*far_heard(call.subject, DelaySummary{delay, 0, 0}));
    ASSERT_EQ(found.size(), 2u) << delay;
    EXPECT_NEAR(found[0].begin, 1.95 + delay, 0.011);
    EXPECT_NEAR(found[1].begin, 11.95 + delay, 0.011);
  }
  EXPECT_FALSE(far_heard(call.subject, std::nullopt));
}

TEST(DelayPoints, overlap_in_recordings_of_up_to_ten_minutes_only) {
  constexpr int low_rate = 800; // Hz, for speed
  const Signal noise = white_noise(600 * low_rate + 1, Random(4));
  const std::vector<int16_t> ref = to_samples(noise), mic = to_samples(excerpt(noise, -low_rate / 20, noise.size()));
  const struct {
    size_t length, points;
    double hop;
  } cases[] = {{600 * low_rate, 597, 1}, {600 * low_rate + 1, 150, 4}};
  for (const auto &one : cases) {
    const auto points = delay_points(SampleView(mic).first(one.length), SampleView(ref).first(one.length), low_rate);
    ASSERT_EQ(points.size(), one.points);
    EXPECT_EQ(points[1].time - points[0].time, one.hop);
    EXPECT_NEAR(points.back().time, 598, 1e-9) << "the last window counts";
    EXPECT_NEAR(points.back().delay, 0.05, 1e-4);
  }
}

TEST(Quality, ratios_agree_with_hand_computed_numbers) {
  // Frames of 160 samples at 8000 Hz: error 20 dB down, then none (35), then ten times the signal (-10, from -20).
  Signal clean(480, 0.1), processed(480, 0.1);
  std::fill_n(processed.begin(), 160, 0.11);
  std::fill_n(processed.begin() + 320, 160, 1.1);
  EXPECT_NEAR(*segmental_snr_db(clean, processed, 8000), (20 + 35 - 10) / 3.0, 1e-9);
  std::fill_n(clean.begin() + 320, 160, 0.0);
  EXPECT_NEAR(*segmental_snr_db(clean, processed, 8000), (20 + 35) / 2.0, 1e-9) << "silent frames do not count";
  EXPECT_FALSE(segmental_snr_db(Signal(480), processed, 8000));
}

// Noise with the slow modulation of speech. The numbers are those of a slow reading of the paper, every sum written
// out.
TEST(Quality, intelligibility_agrees_with_the_paper_and_knows_its_limits) {
  Signal clean = white_noise(5376, Random(5));
  for (size_t i = 0; i < clean.size(); ++i)
    clean[i] *= 0.1 * (1.1 + std::sin(2 * std::numbers::pi * 4 * double(i) / 10000));
  for (const auto &[level, expected] : {std::pair(0.02, 0.895449), {0.1, 0.421146}, {0.3, 0.149939}}) {
    Signal noisy = white_noise(clean.size(), Random(6));
    for (size_t i = 0; i < clean.size(); ++i)
      noisy[i] = clean[i] + level * noisy[i];
    EXPECT_NEAR(*estoi(clean, noisy, 10000), expected, 1e-4) << level;
  }
  EXPECT_FALSE(estoi(excerpt(clean, 0, 3000), excerpt(clean, 0, 3000), 10000)) << "less than 30 frames";
  EXPECT_FALSE(estoi(clean, Signal(clean.size()), 10000));
  EXPECT_FALSE(estoi(Signal(clean.size()), clean, 10000));
}

} // namespace
} // namespace qv::tool::measure
