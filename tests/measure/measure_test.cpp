// Recordings and outputs made by hand, whose measures are known by construction.

#include <gtest/gtest.h>

#include <cmath>

#include "measure/results.h"
#include "scene/noise.h"

namespace qv::tool::measure {
namespace {

using scene::Random;
using scene::white_noise;

constexpr int rate = 8000;
constexpr size_t second = rate;
using Intervals = std::vector<Interval>;

/// 20 s: nobody, far end from 2 s, near end from 8 s, both from 12 s, nobody from 18 s; stationary noises at -30 dBFS
/// (far), -30 dBFS (near) and -70 dBFS (background). The echo lags its reference by 50 ms.
struct Call {
  Signal near = Signal(20 * second), echo = Signal(20 * second), noise = Signal(20 * second), out;
  Subject subject;

  Call() : subject{"hand", rate, {}, {}, {}, {}, {}} {
    const Signal a = white_noise(20 * second, Random(1)), b = white_noise(20 * second, Random(2));
    const Signal c = white_noise(20 * second, Random(3));
    for (size_t i = 0; i < near.size(); ++i) {
      const double t = double(i) / rate;
      echo[i] = (t >= 2 && t < 8) || (t >= 12 && t < 18) ? gain_from_db(-30) * a[i] : 0;
      near[i] = t >= 8 && t < 18 ? gain_from_db(-30) * b[i] : 0;
      noise[i] = gain_from_db(-70) * c[i];
    }
    subject.ref = to_samples(excerpt(echo, rate / 20, echo.size()));
    subject.mic = to_samples(mix(1, 1, 1));
    subject.near = near;
    subject.echo = echo;
    subject.truth.emplace();
    subject.truth->far = Intervals{{2, 8}, {12, 18}};
    subject.truth->near = Intervals{{8, 18}};
    subject.truth->delay = {{0, 0.05, 0}};
    out = mix(1, 1, 1);
  }

  Signal mix(double n, double e, double z) const {
    Signal sum(near.size());
    for (size_t i = 0; i < sum.size(); ++i)
      sum[i] = n * near[i] + e * echo[i] + z * noise[i];
    return sum;
  }

  /// Multiplies the output between two moments.
  void apply(double begin, double end, double db) {
    for (auto i = size_t(begin * rate); i < size_t(end * rate); ++i)
      out[i] *= db > -200 ? gain_from_db(db) : 0;
  }

  Results measured() const {
    Output output;
    output.sent = to_samples(out);
    output.plain = out;
    return measure(subject, output);
  }
};

void expect(const Value &value, double expected, double tolerance, const char *what) {
  ASSERT_TRUE(value.known()) << what << ": " << text_of(value.gap());
  EXPECT_NEAR(value.number(), expected, tolerance) << what;
}

void expect_gap(const Value &value, Gap gap, const char *what) {
  ASSERT_FALSE(value.known()) << what << ": " << value.number();
  EXPECT_EQ(text_of(value.gap()), text_of(gap)) << what;
}

TEST(Measure, an_output_like_the_microphone_changes_nothing) {
  const Results r = Call().measured();
  expect(r.erle_far_db, 0, 1e-3, "erle_far_db");
  expect(r.near_level_db, 0, 0.01, "near_level_db");
  expect(r.noise_attenuation_db, 0, 0.05, "noise_attenuation_db");
  expect(r.si_sdr_near_db, 40, 0.2, "near end over background noise");
  expect(r.seg_snr_near_db, 35, 0.1, "limited to 35 dB");
  expect(r.si_sdr_double_db, 0, 0.2, "near end over echo");
  expect(r.estoi_near, 1, 0.02, "estoi_near");
  expect(r.mic_si_sdr_double_db, r.si_sdr_double_db.number(), 0.01, "microphone");
  expect(r.erle_double_db, 0, 0.1, "erle_double_db");
  expect(r.onsets_lost_percent, 0, 0, "onsets");
  expect(r.near_lost_percent, 0, 0, "lost");
  expect(r.near_lost_alone_percent, 0, 0, "lost");
  expect(r.estoi_gain_double, 0, 0.001, "estoi_gain_double");
  expect(r.echo_bursts_percent, 100, 0, "all of the echo is heard");
  expect_gap(r.time_to_20_db_s, Gap::never, "20 dB");
  expect(r.delay_heard_ms, 50, 0.1, "delay");
  expect(r.delay_true_ms, 50, 0, "true delay");
  expect(r.mic_clipped_percent, 0, 0, "clipping");
}

TEST(Measure, echo_is_measured_by_its_definition) {
  Call call;
  call.out = call.mix(1, gain_from_db(-26), 1);
  call.apply(2, 3.5, 26); // through for 1.5 s, with the noise
  call.apply(5, 5.5, 10); // then a burst, 16 dB down
  const Results r = call.measured();
  const double through = 1.5 / 6, burst = 0.5 / 6, rest = 1 - through - burst;
  expect(r.erle_far_db, -10 * std::log10(through + burst * from_db(-16) + rest * from_db(-26)), 0.25, "erle_far_db");
  expect(r.residual_echo_dbfs, -30 - r.erle_far_db.number(), 0.1, "residual");
  expect(r.time_to_20_db_s, 1.5, 0, "time to 20 dB");
  expect(r.erle_first_db, 0, 0.2, "first 3 s");
  expect(r.erle_settled_db, 0.1 * 0 + 0.1 * 16 + 0.8 * 26, 0.2, "from 3 s on");
  expect(r.echo_bursts_percent, 20, 0.01, "bursts from 3 s on: two of 20 quarters each of the two kinds");
  expect(r.erle_double_db, 26, 0.3, "double talk");
  for (const Quarter &quarter : r.quarters) {
    EXPECT_EQ(quarter.erle.has_value(),
              (quarter.time >= 2 && quarter.time < 8) || (quarter.time >= 12 && quarter.time < 18));
    if (quarter.time > 5.9 && quarter.time < 7.9) {
      EXPECT_NEAR(*quarter.erle, 26, 0.2);
    }
  }
}

TEST(Measure, bursts_below_the_noise_of_the_output_are_not_heard) {
  Call call;
  call.out = call.mix(1, gain_from_db(-14), gain_from_db(27)); // noise at -43 dBFS, echo at -44
  expect(call.measured().echo_bursts_percent, 0, 0, "bursts");
}

TEST(Measure, recovery_counts_talk_after_the_change) {
  Call call;
  call.subject.truth->far = Intervals{{2, 18}};
  call.subject.truth->near = Intervals();
  call.subject.truth->events = {{10, false, true}};
  call.out = white_noise(20 * second, Random(4));
  call.apply(0, 20, -30);
  call.subject.mic = to_samples(call.out);
  call.apply(0, 10, -25);
  call.apply(12.25, 20, -25);
  expect(call.measured().path_recovery_s, 2.25, 0, "recovery");
  call.apply(10, 20, 25);
  expect_gap(call.measured().path_recovery_s, Gap::never, "recovery");
}

TEST(Measure, near_end_losses_are_found) {
  Call call;
  call.subject.truth->near = Intervals{{8, 12}, {12, 15}, {15, 18}};
  call.apply(12, 12.1, -20);    // one onset of three, and 5 of 300 frames
  call.apply(16.5, 17.1, -200); // 30 of 300 frames
  Results r = call.measured();
  expect(r.onsets_lost_percent, 100.0 / 3, 1e-6, "onsets");
  expect(r.near_lost_percent, 100 * 35 / 300.0, 2.5, "strong frames");
  expect(r.digital_silence_percent, 100 * 0.6 / 20, 0.01, "digital silence");
  expect(r.near_lost_alone_percent, 0, 0, "alone");
  call.apply(8, 12, -6);
  call.apply(9, 9.4, -20); // 20 of 200 frames
  r = call.measured();
  expect(r.near_lost_alone_percent, 10, 2, "alone");
  call.apply(9, 9.4, 20);
  r = call.measured();
  expect(r.near_level_db, -6, 0.01, "level");
  expect(r.si_sdr_near_db, 40, 0.2, "a scale is no distortion");
}

TEST(Measure, noise_and_clipping) {
  Call call;
  call.apply(0, 20, -12);
  call.subject.ref[100] = INT16_MAX;
  call.subject.ref[101] = INT16_MIN;
  const Results r = call.measured();
  expect(r.noise_attenuation_db, 12, 0.05, "noise");
  expect(r.output_noise_dbfs, -82, 0.2, "output noise");
  expect(r.ref_clipped_percent, 100 * 2 / (20.0 * rate), 1e-9, "clipping");
  expect(r.out_clipped_percent, 0, 0, "clipping");
}

/// A trace of 20 ms frames with this delay (samples) until `jump` s and that one from then on.
Output traced(const Call &call, int delay, double jump, int later, float gain = 1) {
  Output output;
  output.sent = to_samples(call.out);
  output.plain = call.out;
  output.frame_len = 160;
  for (int k = 0; k < 1000; ++k) {
    QvVoiceTrace trace{};
    trace.echo_delay = k * 0.02 < jump ? delay : later;
    trace.tx_agc_gain = gain;
    trace.linear_erle_db = 17;
    output.trace.push_back(trace);
    output.frame_seconds.push_back(k == 500 ? 0.01 : 0.001);
  }
  return output;
}

TEST(Measure, delay_found_against_true) {
  Call call; // true delay 400 samples; the filter reaches 320 samples
  call.subject.truth->events = {{8, true, false}};
  const struct {
    int delay, later;
    double jump, share, recovery, found;
  } cases[] = {{400, 320, 8, 100, 0, 100}, {80, 81, 10, 50, 2, 0}, {401, 400, 15, 25, 7, 100}};
  for (const auto &one : cases) {
    const Results r = measure(call.subject, traced(call, one.delay, one.jump, one.later));
    expect(r.delay_in_reach_percent, one.share, 0.01, "share");
    expect(r.delay_recovery_s, one.recovery, 1e-9, "recovery");
    expect(r.delay_found_percent, one.found, 0.01, "within half a frame");
    expect(r.delay_found_ms, one.later / 8.0, 1e-9, "found");
  }
  const Results r = measure(call.subject, traced(call, 500, 8, 600, 2));
  expect_gap(r.delay_recovery_s, Gap::never, "out of reach");
  expect(r.agc_gain_db, 6.02, 0.01, "gain");
  expect(r.erle_linear_db, 17, 0, "linear");
  expect(r.real_time_factor, (0.001 * 999 + 0.01) / 20, 1e-9, "speed");
  expect(r.worst_frame_percent, 50, 1e-9, "worst frame");
}

TEST(Measure, what_is_not_known_has_no_number) {
  Call call;
  call.subject.truth.reset();
  call.subject.near.reset();
  call.subject.echo.reset();
  Results r = call.measured();
  for (const auto &value :
       {r.erle_far_db, r.time_to_20_db_s, r.near_level_db, r.estoi_double, r.noise_attenuation_db, r.delay_true_ms,
        r.onsets_lost_percent, r.agc_gain_db, r.real_time_factor, r.delay_found_ms})
    expect_gap(value, Gap::unknown, "without truth, of an output made elsewhere");
  expect(r.erle_heard_db, 0, 1e-3, "the reference is there");
  expect(r.delay_heard_ms, 50, 0.1, "by cross-correlation");

  Call silent;
  for (Signal *part : {&silent.near, &silent.echo, &silent.noise})
    part->assign(part->size(), 0.0);
  silent.subject.mic.assign(silent.near.size(), 0);
  silent.subject.ref = silent.subject.mic;
  silent.subject.near = silent.subject.echo = silent.near;
  silent.subject.truth->far = silent.subject.truth->near = Intervals();
  silent.out = silent.near;
  r = silent.measured();
  for (const auto &value :
       {r.erle_far_db, r.near_level_db, r.si_sdr_near_db, r.noise_attenuation_db, r.delay_heard_ms, r.mic_level_dbfs,
        r.out_level_dbfs, r.near_lost_percent, r.delay_in_reach_percent, r.delay_found_percent})
    expect_gap(value, Gap::absent, "in silence");
  expect(r.digital_silence_percent, 100, 0, "silence");
}

// The gain is the library's own: a call through it, louder by an AGC that adds 12 dB, gives the same plain output.
TEST(Output, the_gain_of_the_agc_is_taken_out) {
  const Call call;
  qv::tool::Setup setup = make_setup(std::nullopt, rate, 20);
  const auto set = [&](const char *section, const char *name, double value) {
    for (const config::Field &field : config::fields)
      if (field.section == section && field.name == name)
        setup.para[size_t(field.word(rate, 0))] = config::encode(field, value);
  };
  set("tx.cng", "swCngEnable", 0); // comfort noise comes behind the AGC
  set("tx.agc", "swAgcEnable", 1);
  set("tx.agc", "fKneeHighDb", 0);
  set("tx.agc", "fKneeGainDb", 0);
  set("tx.agc", "fKneeLowDb", -90);
  set("tx.agc", "fSlopeMid", 1);
  const Output plain = run_library(call.subject, setup);
  set("tx.agc", "fKneeGainDb", 12);
  const Output louder = run_library(call.subject, setup);
  EXPECT_EQ(louder.latency, 160);
  const Results a = measure(call.subject, plain), b = measure(call.subject, louder);
  expect(b.agc_gain_db, 12, 0.1, "gain");
  expect(b.near_level_sent_db, a.near_level_sent_db.number() + 12, 0.1, "as sent");
  expect(b.near_level_db, a.near_level_db.number(), 0.1, "taken out");
  expect(b.erle_far_db, a.erle_far_db.number(), 0.5, "echo reduction");
}

} // namespace
} // namespace qv::tool::measure
