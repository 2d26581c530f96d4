// Each verdict from a recording made to deserve it.

#include "diagnose/diagnose.h"

#include <algorithm>
#include <memory>

#include <gtest/gtest.h>

#include "diagnose/recordings.h"

namespace qv::tool::diagnose {
namespace {

using test::Recording;

/// A recording, run through the library, with the evidence from it.
struct Examined {
  Samples mic, ref;
  Setup setup;
  Run run;
  Diagnosis diagnosis;

  explicit Examined(const Recording &recording, const std::function<void(Run &)> &change = {})
      : mic(to_samples(recording.mic)), ref(to_samples(recording.ref)), setup(recording.setup),
        run(run_tx(setup, mic, ref, {.compensate = true, .progress = {}})) {
    if (change)
      change(run);
    diagnosis = diagnose(Evidence(setup, mic, ref, run.sent, run.trace));
  }
  const Check &check(const std::string &name) const {
    const auto found = std::ranges::find(diagnosis.checks, name, &Check::name);
    if (found == diagnosis.checks.end())
      throw std::logic_error("no check " + name);
    return *found;
  }
  double number(const std::string &name, const std::string &key) const { return check(name).numbers.at(key); }
  std::string first_wrong() const {
    const auto wrong = std::ranges::find(diagnosis.checks, State::wrong, &Check::state);
    return wrong == diagnosis.checks.end() ? "none" : wrong->name;
  }
};

auto constant(double delay) {
  return [delay](double) { return delay; };
}

void set(Recording &recording, const char *section, const char *key, double value) {
  for (const config::Field &field : config::fields)
    if (field.section == section && field.key == key)
      recording.setup.para[size_t(field.word(test::rate, 0))] = config::encode(field, value);
}

void clip(Signal &signal, double limit) {
  for (double &value : signal)
    value = std::clamp(value, -limit, limit);
}

/// Silences every 10 ms that are quieter than -50 dBov, as a noise gate does.
void gate(Signal &signal) {
  const size_t frame = test::rate / 100;
  for (size_t begin = 0; begin + frame <= signal.size(); begin += frame)
    if (power(SignalView(signal).subspan(begin, frame)) < from_db(-50))
      std::fill_n(&signal[begin], frame, 0.0);
}

struct Case {
  const char *name;
  const char *first_wrong;
  std::function<Recording()> make;
  std::function<void(Run &)> change = {};
};

const std::vector<Case> &cases() {
  static const std::vector<Case> all = {
      {"good", "none", [] { return Recording(); }},
      {"reference_silent", "reference",
       [] {
         Recording call;
         scale(call.ref, 0);
         return call;
       }},
      {"reference_below_the_threshold", "reference",
       [] {
         Recording call;
         scale(call.ref, 0.003);
         set(call, "aec.double_talk", "far_active_peak", 60);
         return call;
       }},
      {"microphone_silent", "microphone",
       [] {
         Recording call;
         scale(call.mic, 0);
         return call;
       }},
      {"same_recording", "same_recording",
       [] {
         Recording call;
         call.mic = call.ref;
         scale(call.mic, -0.5);
         return call;
       }},
      {"other_reference", "echo_present",
       [] {
         Recording call;
         call.ref = test::talk(99, 0.5, 16);
         return call;
       }},
      {"swapped", "order",
       [] {
         Recording call;
         std::swap(call.mic, call.ref);
         return call;
       }},
      {"microphone_leads", "order", [] { return Recording(constant(-0.05)); }},
      {"beyond_reach", "reach", [] { return Recording(constant(0.4)); }},
      {"fixed_delay_wrong", "reach",
       [] {
         Recording call;
         set(call, "aec", "track_delay", 0);
         return call;
       }},
      {"jump", "steady_delay", [] { return Recording([](double time) { return time < 8 ? 0.08 : 0.12; }); }},
      {"small_jump", "steady_delay", [] { return Recording([](double time) { return time < 8 ? 0.08 : 0.083; }); }},
      {"drift", "drift", [] { return Recording([](double time) { return 0.08 + 100e-6 * time; }); }},
      {"volume", "volume",
       [] {
         Recording call;
         const Signal echo = test::through_room(call.ref, constant(0.08));
         for (size_t i = test::length / 3; i < test::length; ++i)
           call.mic[i] -= 0.5 * echo[i];
         return call;
       }},
      {"clipped", "clipping",
       [] {
         Recording call;
         clip(call.mic, 0.11);
         return call;
       }},
      {"quiet_reference", "levels",
       [] {
         Recording call;
         scale(call.ref, 0.015);
         set(call, "aec.double_talk", "far_active_peak", 60);
         return call;
       }},
      {"gated", "processed",
       [] {
         Recording call;
         gate(call.mic);
         return call;
       }},
      {"canceller_off", "canceller_on",
       [] {
         Recording call;
         set(call, "aec", "enable", 0);
         return call;
       }},
      {"delay_not_found", "delay_found", [] { return Recording(); },
       [](Run &run) {
         for (QvVoiceTrace &frame : run.trace)
           frame.echo_delay = 2000;
       }},
      {"echo_left", "residual_echo", [] { return Recording(); },
       [](Run &run) { run.sent = to_samples(Recording().mic); }},
      {"near_end_lost", "near_end", [] { return Recording(); },
       [](Run &run) { // half of every fifth of a second: 3 dB, but words are lost
         for (size_t i = 0; i < run.sent.size(); ++i)
           if (i % (test::rate / 5) < test::rate / 10)
             run.sent[i] = 0;
       }},
  };
  return all;
}

class Verdict : public testing::TestWithParam<Case> {};

// Catches a limit on the wrong side, an effect that is blamed before its cause, and a check that fires on a good call.
TEST_P(Verdict, names_the_first_cause) {
  const Examined call(GetParam().make(), GetParam().change);
  EXPECT_EQ(call.first_wrong(), GetParam().first_wrong) << to_text(call.diagnosis, 100);
  if (call.first_wrong() != "none") {
    const Check &check = call.check(call.first_wrong());
    EXPECT_EQ(call.diagnosis.verdict, check.title + ": " + check.found + ".");
    EXPECT_FALSE(check.next.empty());
  }
}

INSTANTIATE_TEST_SUITE_P(Recordings, Verdict, testing::ValuesIn(cases()),
                         [](const auto &one) { return std::string(one.param.name); });

TEST(Diagnose, measures_what_the_recording_was_made_with) {
  const Examined drifting(Recording([](double time) { return 0.08 + 100e-6 * time; }));
  EXPECT_NEAR(drifting.number("drift", "drift_ppm"), 100, 10);

  const Examined late(Recording(constant(0.4)));
  EXPECT_NEAR(late.number("reach", "delay_ms"), 400, 0.2);
  EXPECT_NEAR(late.number("reach", "most_ms"), 310, 1e-9); // 31 half frames of 10 ms

  const Examined jumping(Recording([](double time) { return time < 8 ? 0.08 : 0.12; }));
  const auto &jumps = jumping.check("steady_delay").numbers.at("jumps");
  ASSERT_EQ(jumps.size(), 1u);
  EXPECT_NEAR(jumps[0].at("time_s").get<double>(), 8, 2.5);
  EXPECT_NEAR(jumps[0].at("to_ms").get<double>(), 120, 0.2);

  const Examined good{Recording()};
  EXPECT_NEAR(good.number("order", "delay_ms"), 80, 0.2);
  EXPECT_NEAR(good.number("processed", "noise_floor_dbov"), -66, 1);
  EXPECT_GT(good.number("residual_echo", "judged_s"), 3);
  EXPECT_LT(good.number("near_end", "lost_share"), 0.05);
}

TEST(Diagnose, says_which_way_a_volume_went) {
  Recording call;
  const Signal echo = test::through_room(call.ref, constant(0.08));
  for (size_t i = test::length / 3; i < test::length; ++i)
    call.mic[i] += echo[i];
  const auto steps = Examined(call).check("volume").numbers.at("steps");
  ASSERT_EQ(steps.size(), 1u);
  EXPECT_NEAR(steps[0].at("change_db").get<double>(), 6.02, 0.5);
  EXPECT_NEAR(steps[0].at("time_s").get<double>(), 8, 1.5);
}

// What cannot be measured is null and said to be so, never 0.
TEST(Diagnose, does_not_invent_numbers) {
  Recording call;
  scale(call.ref, 0);
  const auto report = to_json(Examined(call).diagnosis);
  size_t unmeasured = 0;
  for (const auto &check : report.at("checks")) {
    if (check.at("state") != "unmeasured")
      continue;
    ++unmeasured;
    EXPECT_EQ(check.at("found").get<std::string>().rfind("could not be measured", 0), 0u) << check;
  }
  EXPECT_GT(unmeasured, 8u);
  for (const auto &[name, key] :
       {std::pair{"order", "delay_ms"}, {"drift", "drift_ppm"}, {"residual_echo", "erle_db"}}) {
    const auto check = std::ranges::find(report.at("checks"), name, [](const auto &c) { return c.at("name"); });
    EXPECT_TRUE(check->at("numbers").at(key).is_null()) << name;
  }
}

TEST(Diagnose, a_filter_that_never_trains_has_no_time) {
  const Examined call(Recording(), [](qv::tool::Run &run) {
    for (QvVoiceTrace &frame : run.trace)
      frame.filter_adapted = 0;
  });
  EXPECT_EQ(call.first_wrong(), "filter");
  EXPECT_TRUE(call.check("filter").numbers.at("adapted_s").is_null());
}

TEST(Diagnose, text_begins_with_the_verdict_and_keeps_to_its_width) {
  const Diagnosis diagnosis{"Order: swapped.",
                            State::wrong,
                            {{"order", "Order", State::wrong, "the microphone leads by far", "0 ms", "Swap."}}};
  EXPECT_EQ(to_text(diagnosis, 30), "Order: swapped.\n\n"
                                    "WRONG  Order\n"
                                    "       the microphone leads by\n"
                                    "       far (limit: 0 ms)\n"
                                    "       > Swap.\n");
}

} // namespace
} // namespace qv::tool::diagnose
