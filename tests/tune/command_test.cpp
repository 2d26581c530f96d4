// From two recordings of a device to a parameter file, as a user does it.

#include <nlohmann/json.hpp>

#include "audio/audio.h"
#include "diagnose/recordings.h"
#include "process/files.h"
#include "scene/truth.h"

namespace qv::tool::tune {
namespace {

using namespace diagnose::test;

constexpr const char *plan = R"(
title = "small"
[[set]]
field = "rx.agc.enable"
value = 0
[[move]]
field = "aec.suppressor.exponent"
from = 1
to = 6
[[move]]
field = "aec.double_talk.ratio_low"
from = 0.003
to = 0.3
scale = "log"
[[move]]
field = "tx.anr.noise_scale"
from = 0.5
to = 1
[[want]]
measure = "noise_attenuation_db"
at_least = LIMIT
point = 0.001
)";

/// `plays` (48 s of far end with its echo) and `talks` (24 s of near end).
class TuneCommand : public InFolder {
protected:
  TuneCommand() {
    Signal mic, ref;
    for (const unsigned seed : {1u, 4u}) {
      const Signal words = talk(seed, 0.5, seconds), echo = through_room(words, [](double) { return 0.08; });
      ref.insert(ref.end(), words.begin(), words.end());
      mic.insert(mic.end(), echo.begin(), echo.end());
    }
    const Signal noise = hiss(3, -66);
    for (size_t i = 0; i < mic.size(); ++i)
      mic[i] += noise[i % noise.size()];
    put_wav("plays.wav", rate, to_samples(mic));
    put_wav("ref.wav", rate, to_samples(ref));
    Signal near = talk(2, 0, seconds);
    for (size_t i = 0; i < near.size(); ++i)
      near[i] += noise[i];
    put_wav("talks.wav", rate, to_samples(near));
    put_plan("plan.toml", "150");
    put("base.toml", "name = 'base'\nrate = 8000\nframe_ms = 20\n");
  }
  void put_plan(const std::string &name, const std::string &limit) {
    std::string text = plan;
    put(name, text.replace(text.find("LIMIT"), 5, limit));
  }
  CommandResult tune(const std::string &words) {
    return run_command(folder, "tune --rate 8000 --base base.toml " + words);
  }

  static constexpr const char *device = "--echo plays.wav ref.wav --near talks.wav --calls calls --out found.toml ";
};

TEST_F(TuneCommand, tunes_a_device_from_two_recordings) {
  const CommandResult result = tune(std::string(device) + "--plan plan.toml --budget 14 --json");
  ASSERT_LE(result.status, 1) << result.err;
  const auto found = nlohmann::json::parse(result.out);
  const auto &tuned = found["parts"][0], &held = found["parts"][1];
  EXPECT_LT(double(tuned["cost_after"]), double(tuned["cost_before"]));
  EXPECT_EQ(result.status, held["met"] ? 0 : 1);
  EXPECT_EQ(held["part"], "held back");
  EXPECT_EQ(held["recordings"].size(), 6u);
  EXPECT_EQ(found["course"].size(), 14u);
  EXPECT_TRUE(std::is_sorted(found["course"].rbegin(), found["course"].rend()));
  EXPECT_NEAR(double(held["after"]["delay_true_ms"]), 80, 1);

  // The file holds what was found: the same measures, and a comment on every field that differs from its base. Packing
  // does not refuse it, though the plan lets one knee climb over the other; what the plan sets is there, though it buys
  // nothing.
  EXPECT_EQ(run_command(folder, "para check found.toml").status, 0);
  EXPECT_NE(bytes_of(at("found.toml")).find("[rx.agc]"), std::string::npos);
  const auto measured =
      nlohmann::json::parse(run_command(folder, "measure --set calls/check --para found.toml --json").out);
  EXPECT_NEAR(double(measured["means"][0]["measures"]["erle_settled_db"]), double(held["after"]["erle_settled_db"]),
              1e-9);
  EXPECT_EQ(found["fields"].empty(), bytes_of(at("found.toml")).find("without it") == std::string::npos);

  // Every call is the sum of its parts, and the truth says who talks when.
  const auto truth = scene::read_truth(at("calls/check/call-1/scene.toml"));
  ASSERT_TRUE(truth && truth->far && truth->near);
  EXPECT_NEAR(truth->near->front().begin, 9.5, 0.5);
  EXPECT_LT(truth->far->front().begin, 1);
}

TEST_F(TuneCommand, gives_the_same_file_whatever_the_processes_and_after_an_interrupt) {
  ASSERT_LE(tune(std::string(device) + "--plan plan.toml --budget 1").status, 1);
  const std::string search = "--set calls/tune/call-1 --plan plan.toml --budget 14 --seed 3 ";
  ASSERT_LE(tune(search + "-j 1 --out one.toml").status, 1);
  ASSERT_LE(tune(search + "-j 2 --out two.toml").status, 1);
  const std::string file = bytes_of(at("one.toml")), log = bytes_of(at("one.toml.log"));
  EXPECT_EQ(bytes_of(at("two.toml")), file);
  EXPECT_EQ(bytes_of(at("two.toml.log")), log);

  put("cut.log", log.substr(0, log.size() * 2 / 3)); // in the middle of a line
  ASSERT_LE(tune(search + "--log cut.log --out again.toml").status, 1);
  EXPECT_EQ(bytes_of(at("again.toml")), file);
  EXPECT_EQ(bytes_of(at("cut.log")), log);

  const CommandResult other = tune("--set calls/tune/call-2 --plan plan.toml --log cut.log --out no.toml");
  EXPECT_EQ(other.status, 2);
  EXPECT_NE(other.err.find("cut.log: is the log of another search"), std::string::npos) << other.err;
}

TEST_F(TuneCommand, an_impossible_goal_is_said_to_be_missed) {
  ASSERT_LE(tune(std::string(device) + "--plan plan.toml --budget 1").status, 1);
  put_plan("impossible.toml", "900");
  const CommandResult result = tune("--set calls/tune/call-1 --plan impossible.toml --budget 4 --out x.toml");
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.out.find("at least 900 MISSED"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("not every want is met"), std::string::npos);
}

TEST_F(TuneCommand, hopeless_recordings_are_refused_with_their_reason) {
  put_wav("silent.wav", rate, std::vector<int16_t>(48 * rate));
  put_wav("short.wav", rate, std::vector<int16_t>(rate, 100));
  Signal disturbed = to_signal(read_audio({at("plays.wav"), 0, {}}).audio.samples);
  const Signal talker = talk(9, 17, 23.5);
  for (size_t i = 0; i < talker.size(); ++i)
    disturbed[i] += 2 * talker[i];
  put_wav("disturbed.wav", rate, to_samples(disturbed));
  const struct {
    const char *words, *message;
  } cases[] = {
      {"--echo silent.wav ref.wav --near talks.wav --calls c",
       "silent.wav with ref.wav: nothing to tune on: Microphone: digital silence"},
      {"--echo plays.wav silent.wav --near talks.wav --calls c", "Reference: digital silence"},
      {"--echo ref.wav plays.wav --near talks.wav --calls c", "nothing to tune on"},
      {"--echo short.wav ref.wav --near talks.wav --calls c", "short.wav: is 1.0 s long; at least 39 s"},
      {"--echo plays.wav ref.wav --near silent.wav --calls c", "silent.wav: is silent; somebody should talk"},
      {"--echo disturbed.wav ref.wav --near talks.wav --calls c", "disturbed.wav: somebody talks for"},
      {"--echo plays.wav ref.wav --near talks.wav --calls c --rate 16000", "plays.wav: has 8000 Hz"},
      {"--set nowhere", "nowhere: holds no recordings"},
      {"--set . --plan none.toml", "none.toml"},
      {"--echo plays.wav ref.wav", "--near"},
  };
  for (const auto &one : cases) {
    const std::string words = one.words;
    const char *at_rate = words.find("--rate") == words.npos ? " --rate 8000" : "";
    const CommandResult result = run_command(folder, "tune --out x.toml " + words + at_rate);
    EXPECT_EQ(result.status, 2) << one.words << result.out;
    EXPECT_NE(result.err.find(one.message), std::string::npos) << one.words << ": " << result.err;
  }
}

} // namespace
} // namespace qv::tool::tune
