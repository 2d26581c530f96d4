// Each verdict from a recording made to deserve it, and the command.

#include "diagnose/diagnose.h"

#include <algorithm>
#include <limits>
#include <variant>

#include "diagnose/recordings.h"
#include "para/words.h"
#include "process/files.h"

namespace qv::tool::diagnose {
namespace {

using namespace test;

void set(Recording &call, const char *key, double value) {
  set_value(*para::find_field(key), call.setup.para, 0, value);
}

void quiet_ref(Recording &call, double gain) {
  scale(call.ref, gain);
  set(call, "aec.double_talk.far_active_peak", 60);
}

/// From 8 s on.
void double_volume(Recording &call) {
  Signal echo = through_room(call.ref);
  std::fill_n(echo.begin(), length / 3, 0);
  add(call.mic, echo);
}

void set_trace(Run &run, int32_t QvVoiceTrace::*field, int32_t value) {
  for (QvVoiceTrace &frame : run.trace)
    frame.*field = value;
}

constexpr double none = std::numeric_limits<double>::quiet_NaN();

/// What hand arithmetic pins, and what no kind of faults.h holds.
struct Case {
  const char *name, *first_wrong;
  std::variant<Delay, std::function<void(Recording &)>, std::function<void(Run &)>> change;
  bool state_space = false; ///< the canceller in use
};

const Case cases[] = {
    {"good", "none", steady},
    {"reference silent", "reference", [](Recording &call) { scale(call.ref, 0); }},
    {"reference below the threshold", "reference", [](Recording &call) { quiet_ref(call, 0.003); }},
    {"beyond reach", "reach", [](double) { return 0.4; }},
    {"fixed delay wrong", "reach", [](Recording &call) { set(call, "aec.track_delay", 0); }},
    {"jump", "steady_delay", [](double time) { return time < 8 ? 0.08 : 0.12; }},
    {"small jump", "steady_delay", [](double time) { return time < 8 ? 0.08 : 0.083; }},
    {"drift", "drift", [](double time) { return 0.08 + 100e-6 * time; }},
    {"clock 1000 ppm fast", "drift", [](double time) { return 0.08 + 1000e-6 * time; }},
    {"44.1 kHz played as 48 kHz", "drift", [](double time) { return 0.08 + time - time * 48 / 44.1; }},
    {"volume higher", "volume", double_volume},
    {"quiet reference", "levels", [](Recording &call) { quiet_ref(call, 0.015); }},
    {"canceller off", "canceller_on", [](Recording &call) { set(call, "aec.enable", 0); }},
    {"delay not found", "delay_found", [](Run &run) { set_trace(run, &QvVoiceTrace::echo_delay, 2000); }},
    {"filter never trains", "filter", [](Run &run) { set_trace(run, &QvVoiceTrace::filter_adapted, 0); }},
    {"echo left", "residual_echo", [](Run &run) { run.sent = to_samples(Recording().mic); }},
    {"near end lost", "near_end", [](Run &run) { std::fill_n(&run.sent[18 * rate], 2 * rate, 0); }},
    // What the other canceller cannot follow, and what neither can.
    {"400 ms, state space", "none", [](double) { return 0.4; }, true},
    {"drift, state space", "none", [](double time) { return 0.08 + 100e-6 * time; }, true},
    {"400 ppm, state space", "drift", [](double time) { return 0.08 + 400e-6 * time; }, true},
    {"jump with echo left, state space", "steady_delay", [](double time) { return time < 8 ? 0.08 : 0.12; }, true},
    {"jump out of reach, state space", "steady_delay", [](double time) { return time < 8 ? 0.02 : -0.02; }, true},
    {"canceller off, state space", "canceller_on", [](Recording &call) { set(call, "aec.enable", 0); }, true},
    {"filter elsewhere, state space", "delay_found",
     [](Run &run) { set_trace(run, &QvVoiceTrace::filter_delay, 2000); }, true},
    {"nothing explained, state space", "filter", [](Run &run) { set_trace(run, &QvVoiceTrace::filter_adapted, 0); },
     true},
    {"echo left, state space", "residual_echo", [](Run &run) { run.sent = to_samples(Recording().mic); }, true},
    {"near end lost, state space", "near_end", [](Run &run) { std::fill_n(&run.sent[18 * rate], 2 * rate, 0); }, true},
};

constexpr std::string_view effects[] = {"delay_found", "filter", "residual_echo", "near_end"};

struct Number {
  std::string_view name;
  const char *place;
  double expected, tolerance; ///< of a list: its length; `none`: null
  Number(const char *n, const char *p, double e, double t = 0) : name(n), place(p), expected(e), tolerance(t) {}
};

const std::vector<Number> numbers = {Number("good", "/order/delay_ms", 80, 0.2),
                                     Number("good", "/processed/noise_floor_dbov", -66, 1),
                                     Number("good", "/residual_echo/judged_s", 12, 9),
                                     Number("good", "/near_end/lost_share", 0, 0.05),
                                     Number("reference silent", "/order/delay_ms", none),
                                     Number("reference silent", "/drift/drift_ppm", none),
                                     Number("reference silent", "/residual_echo/erle_db", none),
                                     Number("beyond reach", "/reach/delay_ms", 400, 0.2),
                                     Number("beyond reach", "/reach/most_ms", 310, 1e-9),
                                     Number("jump", "/steady_delay/jumps", 1, 0),
                                     Number("jump", "/steady_delay/jumps/0/time_s", 8, 2.5),
                                     Number("jump", "/steady_delay/jumps/0/to_ms", 120, 0.2),
                                     Number("drift", "/drift/drift_ppm", 100, 10),
                                     Number("clock 1000 ppm fast", "/drift/drift_ppm", 1001, 20),
                                     Number("44.1 kHz played as 48 kHz", "/drift/echo_speed", 48 / 44.1, 1e-4),
                                     Number("volume higher", "/volume/steps", 1, 0),
                                     Number("volume higher", "/volume/steps/0/time_s", 8, 1.5),
                                     Number("volume higher", "/volume/steps/0/change_db", 6.02, 0.5),
                                     Number("filter never trains", "/filter/adapted_s", none),
                                     Number("400 ms, state space", "/reach/most_ms", 500, 1e-9),
                                     Number("400 ms, state space", "/delay_found/error_ms", 0, 5),
                                     Number("400 ms, state space", "/delay_found/share_found", 1, 0.1),
                                     Number("drift, state space", "/drift/drift_ppm", 100, 10),
                                     Number("drift, state space", "/delay_found/error_ms", 0, 5)};

/// Advice that names fields of the other canceller. @return the first; empty when there is none
std::string advice_for_the_other(const Diagnosis &found) {
  for (const Check &check : found.checks)
    if (const size_t at = check.next.find("aec.");
        at != std::string::npos && !check.next.substr(at).starts_with("aec.enable"))
      return check.next;
  return "";
}

// Catches a limit on the wrong side, an effect that is blamed before its cause, and a check that fires on a good call.
TEST(Diagnose, names_the_first_cause_and_measures_what_the_recording_was_made_with) {
  for (const auto &[name, first_wrong, change, state_space] : cases) {
    SCOPED_TRACE(name);
    const auto *delay = std::get_if<0>(&change);
    Recording call(delay ? *delay : steady, state_space ? "clear-8k-20ms" : "balanced-8k-20ms");
    if (const auto *made = std::get_if<1>(&change))
      (*made)(call);
    const Samples mic = to_samples(call.mic), ref = to_samples(call.ref);
    qv::tool::Run run = run_tx(call.setup, mic, ref, {.compensate = true, .progress = {}});
    if (const auto *ran = std::get_if<2>(&change))
      (*ran)(run);
    const Diagnosis found = diagnose(Evidence(call.setup, mic, ref, run.sent, run.trace));
    const auto wrong = std::ranges::find(found.checks, State::wrong, &Check::state);
    EXPECT_EQ(wrong == found.checks.end() ? "none" : wrong->name, first_wrong) << to_text(found, 100);
    if (wrong != found.checks.end()) {
      const bool effect = std::ranges::count(effects, wrong->name) > 0;
      EXPECT_EQ(found.verdict, wrong->title + ": " + wrong->found + (effect ? "; no cause was found." : "."));
      EXPECT_EQ(found.sure, !effect);
      EXPECT_FALSE(wrong->next.empty());
    }
    const bool in_use = state_space && first_wrong != std::string_view("canceller_on");
    EXPECT_TRUE(!in_use || advice_for_the_other(found).empty()) << advice_for_the_other(found);
    Numbers all;
    for (const Check &check : found.checks) {
      all[check.name] = check.numbers;
      EXPECT_EQ(check.state == State::unmeasured, check.found.starts_with("could not be measured")) << check.name;
    }
    for (const auto &[of, place, expected, tolerance] : numbers) {
      if (of != name)
        continue;
      const Numbers &number = all.at(Numbers::json_pointer(place));
      if (std::isnan(expected))
        EXPECT_TRUE(number.is_null()) << place;
      else
        EXPECT_NEAR(number.is_array() ? double(number.size()) : double(number), expected, tolerance) << place;
    }
  }
}

TEST(Diagnose, text_begins_with_the_verdict_and_keeps_to_its_width) {
  const Diagnosis diagnosis{"Order: swapped.",
                            false,
                            State::wrong,
                            {{"order", "Order", State::wrong, "the microphone leads by far", "0 ms", "Swap."}}};
  EXPECT_EQ(to_text(diagnosis, 30), "Order: swapped.\n\n"
                                    "WRONG  Order\n"
                                    "       the microphone leads by\n"
                                    "       far (limit: 0 ms)\n"
                                    "       > Swap.\n");
}

TEST_F(InFolder, diagnose_exits_with_1_when_something_is_wrong_and_refuses_what_it_cannot_judge) {
  const Recording call;
  put_wav("mic.wav", rate, to_samples(call.mic));
  put_wav("ref.wav", rate, to_samples(call.ref));
  const CommandResult good = run_command(folder, "diagnose --mic mic.wav --ref ref.wav --frame-ms 16");
  EXPECT_EQ(good.status, 0) << good.out;
  EXPECT_TRUE(good.out.starts_with("Nothing wrong found")) << good.out;

  const CommandResult swapped = run_command(folder, "diagnose --mic ref.wav --ref mic.wav --json");
  EXPECT_EQ(swapped.status, 1);
  const auto report = nlohmann::json::parse(swapped.out);
  EXPECT_EQ(report.at("state"), "wrong");
  EXPECT_EQ(report.at("frame_samples"), 160);
  EXPECT_NE(report.at("verdict").get<std::string>().find("swapped"), std::string::npos);
  EXPECT_EQ(run_command(folder, "diagnose . --json").out,
            run_command(folder, "diagnose --mic mic.wav --ref ref.wav --json").out);

  expect_refused("diagnose ", {{"", "--mic"},
                               {"--mic mic.wav", "--ref"},
                               {"nowhere", "nowhere/mic.wav"},
                               {"--mic mic.wav --ref none.wav", "none.wav"},
                               {"--stereo mic.wav", "mic.wav"},
                               {". --mic mic.wav", "--mic"},
                               {"--stereo -", "- stands for a pipe, which qvvoice process reads"}});
}

} // namespace
} // namespace qv::tool::diagnose
