// From two recordings of a device to a parameter file, as a user does it; plans, and the search.

#include <algorithm>
#include <cmath>

#include <nlohmann/json.hpp>

#include "audio/audio.h"
#include "diagnose/recordings.h"
#include "fleet/coordinator.h"
#include "para/words.h"
#include "process/files.h"
#include "scene/truth.h"
#include "support/error.h"
#include "tune/plan.h"
#include "tune/search.h"
#include "tune/tuner.h"

namespace qv::tool::tune {
namespace {

using namespace diagnose::test;

const std::string small_plan = R"(
title = "small"
set = [{field = "rx.agc.enable", value = 0}]
move = [{field = "aec.suppressor.exponent", from = 1, to = 6},
        {field = "aec.double_talk.ratio_low", from = 0.003, to = 0.3, scale = "log"},
        {field = "tx.anr.noise_scale", from = 0.5, to = 1}]
want = [{measure = "noise_attenuation_db", point = 0.001, at_least = )";

/// `plays` (48 s of far end with its echo) and `talks` (24 s of near end).
class TuneCommand : public InFolder {
protected:
  TuneCommand() {
    for (const unsigned seed : {1u, 4u}) {
      const Signal words = talk(seed, 0.5, seconds), echo = through_room(words);
      ref.insert(ref.end(), words.begin(), words.end());
      plays.insert(plays.end(), echo.begin(), echo.end());
    }
    Signal near = talk(2, 0, seconds);
    for (Signal *part : {&plays, &near})
      add(*part, hiss(3, -66));
    put_wav("plays.wav", rate, to_samples(plays));
    put_wav("ref.wav", rate, to_samples(ref));
    put_wav("talks.wav", rate, to_samples(near));
    put("plan.toml", small_plan + "150}]");
    put("base.toml", "name = 'base'\nrate = 8000\nframe_ms = 20\n");
  }
  CommandResult tune(const std::string &words) { return run_command(folder, command + words); }

  const std::string command = "tune --rate 8000 --base base.toml --plan plan.toml ";
  static constexpr const char *device = "--echo plays.wav ref.wav --near talks.wav --calls calls --out found.toml ";
  Signal plays, ref;
};

TEST_F(TuneCommand, tunes_a_device_from_two_recordings) {
  const CommandResult result = tune(std::string(device) + "--budget 14 --json");
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
  for (const auto &field : found["fields"])
    EXPECT_TRUE(double(field["lost"]) > 0.01 || field["field"] == "rx.agc.enable")
        << field["field"] << ": what buys nothing is put back";

  // The file holds what was found: the same measures, and what the plan sets, though it buys nothing.
  const std::string file = bytes_of(at("found.toml"));
  EXPECT_EQ(run_command(folder, "para check found.toml").status, 0);
  EXPECT_NE(file.find("[rx.agc]"), std::string::npos);
  const auto measured =
      nlohmann::json::parse(run_command(folder, "measure --set calls/check --para found.toml --json").out);
  EXPECT_NEAR(double(measured["means"][0]["measures"]["erle_settled_db"]), double(held["after"]["erle_settled_db"]),
              1e-9);
  EXPECT_EQ(found["fields"].empty(), file.find("without it") == std::string::npos);

  // The truth of every call says who talks when.
  const auto truth = scene::read_truth(at("calls/check/call-1/scene.toml"));
  ASSERT_TRUE(truth && truth->far && truth->near);
  EXPECT_NEAR(truth->near->front().begin, 9.5, 0.5);
  EXPECT_LT(truth->far->front().begin, 1);
}

TEST_F(TuneCommand, gives_the_same_file_whatever_the_processes_and_after_an_interrupt) {
  ASSERT_LE(tune(std::string(device) + "--budget 1").status, 1);
  const std::string search = "--set calls/tune/call-1 --budget 14 --seed 3 ";
  ASSERT_LE(tune(search + "-j 1 --out one.toml").status, 1);
  ASSERT_LE(tune(search + "-j 2 --out two.toml").status, 1);
  const std::string file = bytes_of(at("one.toml")), log = bytes_of(at("one.toml.log"));
  EXPECT_EQ(bytes_of(at("two.toml")), file);
  EXPECT_EQ(bytes_of(at("two.toml.log")), log);

  put("cut.log", log.substr(0, log.size() * 2 / 3)); // in the middle of a line
  ASSERT_LE(tune(search + "--log cut.log --out again.toml").status, 1);
  EXPECT_EQ(bytes_of(at("again.toml")), file);
  EXPECT_EQ(bytes_of(at("cut.log")), log);

  // A smaller budget keeps what the log has, and so does a run that is stopped before it finds anything new.
  ASSERT_LE(tune("--set calls/tune/call-1 --seed 3 --budget 2 --log cut.log --out again.toml").status, 1);
  EXPECT_EQ(bytes_of(at("again.toml")), file);
  EXPECT_EQ(bytes_of(at("cut.log")), log);
  put("bad.log", log.substr(0, log.find('\n') + 1) + "{\"words\": [\"a\"], \"means\": 3}\n");
  expect_refused(command,
                 {{search + "--log bad.log --out no.toml", "bad.log:2: is not an evaluation"},
                  {"--set calls/tune/call-2 --log cut.log --out no.toml", "cut.log: is the log of another search"}});

  put("plan.toml", small_plan + "900}]");
  const CommandResult missed = tune("--set calls/tune/call-1 --budget 4 --out x.toml");
  EXPECT_EQ(missed.status, 1);
  EXPECT_NE(missed.out.find("at least 900 MISSED"), std::string::npos) << missed.out;
  EXPECT_NE(missed.out.find("not every want is met"), std::string::npos);
}

/// A cluster of one script, which runs every task, but of its third job the first alone, and refuses that one.
constexpr const char *cluster = R"sh(echo >>jobs
for word; do case $word in --array=*) tasks=${word#--array=1-} ;; esac; script=$word; done
for task in $(seq "$tasks"); do
  SLURM_ARRAY_TASK_ID=$task sh "$script"
  [ "$(wc -l <jobs)" -eq 3 ] && echo no such account >&2 && exit 1
done
echo 7
)sh";

// Whatever measures the shards, and wherever it was interrupted: a candidate's shards that are there count, and one
// that cannot be measured is scored as failed and named.
TEST_F(TuneCommand, a_population_finds_the_same_on_every_engine_and_goes_on_from_its_shards) {
  ASSERT_LE(tune(std::string(device) + "--budget 1").status, 1);
  put("two.csv", "folder\ncalls/tune/call-1\ncalls/tune/call-4\n");
  const std::string search = "--set two.csv --check calls/check/call-2 --budget 7 --seed 3 --search population "
                             "--generation 4 ";
  const std::string in_shards = search + "--shard-seconds 0.3 --run ";
  ASSERT_LE(tune(search + "--out one.toml").status, 1);
  ASSERT_LE(tune(in_shards + "run -j 2 --out two.toml").status, 1);
  const std::string file = bytes_of(at("one.toml")), log = bytes_of(at("one.toml.log"));
  const auto evaluations = [&](const char *name) {
    const std::string text = bytes_of(at(name));
    return text.substr(text.find('\n'));
  };
  EXPECT_GE(std::ranges::count(log, '\n'), 8);
  EXPECT_EQ(bytes_of(at("two.toml")), file);
  EXPECT_EQ(evaluations("two.toml.log"), evaluations("one.toml.log"));
  EXPECT_TRUE(fs::is_empty(at("run/check"))) << "what is in the log needs no shards";

  put_program("sbatch", cluster);
  put_program("squeue", "exit 0\n");
  ASSERT_EQ(shell("$QV " + command + in_shards + "far --on slurm --out far.toml 2>err"), 2)
      << "the third job is refused";
  EXPECT_NE(bytes_of(at("err")).find("no such account"), std::string::npos) << bytes_of(at("err"));
  ASSERT_EQ(std::distance(fs::directory_iterator(at("far/tune")), {}), 1);
  const fs::path shard = fs::directory_iterator(at("far/tune"))->path() / "shards/000000.jsonl";
  const std::string first = bytes_of(shard);
  const size_t begin = first.find('\n') + 1;
  put(fs::relative(shard, folder), first.substr(0, begin) +
                                       R"({"name":"calls/tune/call-1","frame_ms":20,"failed":"planted"})" +
                                       first.substr(first.find('\n', begin)));
  ASSERT_LE(shell("$QV " + command + in_shards + "far --out far.toml >out 2>err"), 1) << bytes_of(at("err"));
  EXPECT_NE(bytes_of(at("err")).find("evaluation 1 of 7 has failed: calls/tune/call-1: planted"), std::string::npos)
      << bytes_of(at("err"));
  const std::string far = evaluations("far.toml.log");
  EXPECT_NE(far.find(R"("failed":"calls/tune/call-1: planted")"), std::string::npos);
  EXPECT_GE(std::ranges::count(far, '\n'), 8) << "the rest goes on";
  const std::string found = bytes_of(at("far.toml"));
  ASSERT_LE(tune(search + "--run far --out far.toml").status, 1);
  EXPECT_EQ(bytes_of(at("far.toml")), found);
  EXPECT_EQ(evaluations("far.toml.log"), far) << "what is there is not measured again";

  const fleet::Lock held(at("far"));
  expect_refused(command, {{search + "--run far --out no.toml", "is at it"},
                           {search + "--on slurm --out no.toml", "--on requires --run"},
                           {search + "--run r --on commands --out no.toml", "--on"},
                           {search + "--generation 3 --out no.toml", "--generation"},
                           {"--set two.csv --generation 4 --out no.toml", "--search population has generations"}});
}

TEST_F(TuneCommand, hopeless_recordings_are_refused_with_their_reason) {
  add(plays, talk(9, 17, 23.5), 2);
  put_wav("disturbed.wav", rate, to_samples(plays));
  put_wav("silent.wav", rate, std::vector<int16_t>(48 * rate));
  Signal hum = hiss(5, -30);
  put_wav("hum.wav", rate, to_samples(hum));
  put_wav("short.wav", rate, std::vector<int16_t>(rate, 100));
  expect_refused(
      "tune --out x.toml ",
      {
          {"--rate 8000 --echo silent.wav ref.wav --near talks.wav --calls c",
           "silent.wav with ref.wav: nothing to tune on: Microphone: digital silence"},
          {"--rate 8000 --echo plays.wav silent.wav --near talks.wav --calls c", "Reference: digital silence"},
          {"--rate 8000 --echo ref.wav plays.wav --near talks.wav --calls c", "nothing to tune on"},
          {"--rate 8000 --echo short.wav ref.wav --near talks.wav --calls c",
           "short.wav: is 1.0 s long; at least 39 s"},
          {"--rate 8000 --echo plays.wav ref.wav --near silent.wav --calls c",
           "silent.wav: is silent; somebody should talk"},
          {"--rate 8000 --echo plays.wav ref.wav --near plays.wav --calls c",
           "plays.wav: the far end of ref.wav is in it, 80 ms late"},
          {"--rate 8000 --echo plays.wav ref.wav --near hum.wav --calls c",
           "hum.wav: somebody talks for 0.0 s of its first half"},
          {"--rate 8000 --echo disturbed.wav ref.wav --near talks.wav --calls c", "disturbed.wav: somebody talks for"},
          {"--echo plays.wav ref.wav --near talks.wav --calls c --rate 16000", "plays.wav: has 8000 Hz"},
          {"--rate 8000 --set nowhere", "nowhere: holds no recordings"},
          {"--rate 8000 --set . --plan none.toml", "none.toml"},
          {"--rate 8000 --echo plays.wav ref.wav", "--near"},
      });
}

const std::string rich_plan = R"(
title = "test"
set = [{field = "aec.suppressor.exponent", value = 3}]
move = [{field = "aec.double_talk.ratio_low", elements = [1, 20], from = 0.01, to = 0.16, start = 0.08, scale = "log"},
        {field = "aec.double_talk.ratio_high", factor_of = "aec.double_talk.ratio_low", from = 1, to = 5},
        {field = "aec.double_talk.count_min", from = 2, to = 12}]
want = [{measure = "erle_far_db", at_least = 40, point = 2}, {measure = "near_lost_percent", at_most = 10}]
)";

double value(const config::Image &image, const std::string &name, int element = 0) {
  return value_of(*para::find_field(name), image, element);
}

TEST(Plan, puts_numbers_into_words_and_finds_them_again) {
  const Plan plan = parse_plan(rich_plan, "p.toml", rate);
  const config::Image set = plan.with_set(config::default_image(rate));
  const config::Image image = plan.moved(set, {0.5, 0.5, 0.31});
  EXPECT_EQ(value(image, "aec.suppressor.exponent"), 3);
  EXPECT_NEAR(value(plan.moved(set, plan.start(set)), "aec.double_talk.ratio_low", 5), 0.08, 1e-4);
  EXPECT_NEAR(value(image, "aec.double_talk.ratio_low", 1), 0.04, 1e-4);
  EXPECT_NEAR(value(image, "aec.double_talk.ratio_low", 0), 0.0033, 1e-4) << "not among the elements";
  EXPECT_NEAR(value(image, "aec.double_talk.ratio_high", 2), 0.12, 1e-3);
  EXPECT_NEAR(value(image, "aec.double_talk.ratio_high", 0), 3 * value(image, "aec.double_talk.ratio_low", 0), 1e-4);
  EXPECT_EQ(value(image, "aec.double_talk.count_min"), 5);
  EXPECT_EQ(plan.moved(image, plan.place_of(image)), image);
  EXPECT_EQ(plan.place_of(config::default_image(rate))[0], 0) << "0.0033 lies below the range";
}

// The state-space canceller's words exist only behind its switch.
TEST(Plan, switches_come_before_what_they_bring) {
  const std::string move = "[[move]]\nfield = 'echo_control.care'\nfrom = 0.1\nto = 0.9\n";
  const std::string want = "[[want]]\nmeasure = 'erle_far_db'\nat_least = 3\n";
  const std::string tail = "[[set]]\nfield = 'echo_control.tail_ms'\nvalue = 200\n";
  const std::string on = "[[set]]\nfield = 'echo_control.enable'\nvalue = 1\n";
  const config::Image plain = config::default_image(rate);
  const Plan plan = parse_plan(tail + on + move + want, "p.toml", rate);
  const config::Image set = plan.with_set(plain);
  EXPECT_EQ(value(set, "echo_control.tail_ms"), 200);
  EXPECT_NEAR(value(plan.moved(set, {0.25}), "echo_control.care"), 0.3, 1e-3);
  EXPECT_NO_THROW(plan.require_words(set));
  for (const std::string &off : {tail + move + want, move + want}) {
    const Plan idle = parse_plan(off, "p.toml", rate);
    EXPECT_THROW(idle.require_words(idle.with_set(plain)), InputError) << off;
    EXPECT_NO_THROW(idle.require_words(set)) << off;
  }
}

TEST(Plan, every_fault_is_named_and_those_built_in_have_none) {
  const std::string move = "[[move]]\nfield = 'aec.echo_delay'\nfrom = 0\nto = 9\n";
  const std::string want = "[[want]]\nmeasure = 'erle_far_db'\nat_least = 3\n";
  const std::pair<std::string, const char *> cases[] = {
      {"", "p.toml:1: move: found none"},
      {move + move, "want: found none"},
      {move + move + want + "[[wish]]\n", "wish: unknown key"},
      {"[[move]]\nfield = 'aec.echo'\n", "p.toml:2: move.field: found \"aec.echo\""},
      {"[[move]]\nfield = 'aec.echo_delay'\nfrom = 0\nto = 4097\n", "move.to: found 4097; a number from 0 to 4096"},
      {"[[move]]\nfield = 'aec.echo_delay'\nfrom = 0\nto = 9\nscale = 'log'\n", "move.from: found 0; more than 0"},
      {"[[move]]\nfield = 'aec.double_talk.judge'\nelements = [3, 1]\n",
       "move.elements: found [3, 1]; [first, last] of 0 to 5"},
      {move + move + "[[want]]\nmeasure = 'erle'\n", "want.measure: found \"erle\""},
      {move + move + "[[want]]\nmeasure = 'erle_far_db'\n", "found neither at_least nor at_most"},
      {move + move + want + "at_most = 9\n", "found at_most as well"},
  };
  for (const auto &[text, message] : cases) {
    const std::string said = refusal([&] { parse_plan(text, "p.toml", rate); });
    EXPECT_NE(said.find(message), std::string::npos) << text << said;
  }
  EXPECT_EQ(built_in().size(), 5u);
  for (const BuiltIn &one : built_in())
    for (const int at : {8000, 16000})
      EXPECT_NO_THROW(parse_plan(one.text, std::string(one.name), at)) << one.name;
}

/// Lowest at 0.6, and for every other number beyond the border: 4 * 0.09 on it.
double bowl(const Point &x) {
  double sum = 0;
  for (size_t i = 0; i < x.size(); ++i)
    sum += std::pow(x[i] - (i % 2 ? 1.3 : 0.6), 2);
  return sum;
}

TEST(Search, finds_the_lowest_place_and_goes_on_where_it_has_settled) {
  constexpr size_t budget = 1000, generation = 10;
  using Searching = std::function<void(uint64_t seed, const Heights &heights)>;
  const std::pair<Searching, double> searches[] = {
      {[](uint64_t seed, const Heights &heights) { search_subplex(Point(8, 0.2), 0.2, seed, heights); }, 1e-6},
      {[](uint64_t seed, const Heights &heights) { search_population(Point(8, 0.2), 0.2, seed, generation, heights); },
       1e-2}};
  for (const auto &[search, accuracy] : searches)
    for (const uint64_t seed : {1, 2, 3}) {
      size_t count = 0;
      double lowest = 1e9;
      search(seed, [&](const std::vector<Point> &places) {
        std::vector<double> heights;
        for (const Point &place : places) {
          EXPECT_TRUE(std::ranges::all_of(place, [](double value) { return value >= 0 && value <= 1; }));
          if (count == budget)
            return heights;
          // some parameters cannot be measured
          heights.push_back(++count % 7 == 0 ? std::numeric_limits<double>::infinity() : bowl(place));
          lowest = std::min(lowest, heights.back());
        }
        return heights;
      });
      EXPECT_NEAR(lowest, 4 * 0.09, accuracy) << seed;
      EXPECT_EQ(count, budget) << "the whole budget is spent";
    }
}

// Steps along an axis grow where they pay: a start far away is left in a few generations, whatever the first step.
TEST(Search, a_population_adapts_its_step) {
  for (const double step : {0.01, 0.3}) {
    std::vector<double> lowest;
    search_population(Point(20, 0.5), step, 1, 12, [&](const std::vector<Point> &places) {
      EXPECT_EQ(places.size(), 12u);
      std::vector<double> heights;
      for (const Point &place : places)
        heights.push_back(bowl(place));
      lowest.push_back(std::ranges::min(heights));
      return lowest.size() < 40 ? heights : std::vector<double>();
    });
    ASSERT_EQ(lowest.size(), 40u);
    EXPECT_LT(lowest.back(), 2 * 10 * 0.09) << step << ": 6.5 at the start";
  }
}

/// One recording, on which noise is attenuated by the noise scale alone, and which some parameters end.
class MadeEvaluator : public Evaluator {
public:
  const std::vector<std::string> &names() const override { return names_; }
  Json identity() const override { return {{"recordings", names_}}; }
  void evaluate(const std::vector<config::Image> &images, const Done &done) override {
    for (size_t i = 0; i < images.size(); ++i) {
      const Json found = {{"noise_attenuation_db", 10 * value(images[i], "tx.anr.noise_scale")}};
      const bool dies = value(images[i], "aec.suppressor.exponent") > 2;
      deaths += dies;
      done(i, {{numbers_of(dies ? Json::object() : found)}, dies ? "made: died" : ""});
    }
  }
  size_t deaths = 0;

private:
  std::vector<std::string> names_ = {"made"};
};

class Tuning : public InFolder {};

TEST_F(Tuning, what_buys_nothing_is_put_back_and_what_dies_is_no_result) {
  const std::string text = small_plan + "9}]"; // a point is 0.001 dB
  const Plan plan = parse_plan(text, "p.toml", rate);
  const config::Image before = config::default_image(rate);
  for (const Method method : {Method::subplex, Method::population}) {
    MadeEvaluator evaluator;
    History history(at(fmt::format("log-{}", int(method))), evaluator.identity());
    SearchOptions options;
    options.budget = 90;
    options.step = 0.4;
    options.method = method;
    size_t told = 0, failed = 0;
    const Result result =
        tune(plan, before, evaluator, history, options, [&](const Candidate &candidate, const Candidate &best, size_t) {
          ++told;
          failed += !candidate.measured.failed.empty();
          EXPECT_EQ(best.measured.failed, "");
        });
    EXPECT_EQ(result.course.size(), 90u);
    EXPECT_GT(told, 30u);
    EXPECT_GT(failed, 0u);
    EXPECT_GE(evaluator.deaths, failed);
    EXPECT_LT(result.after.cost, result.before.cost);
    EXPECT_EQ(value(result.after.image, "aec.suppressor.exponent"), value(before, "aec.suppressor.exponent"));
    EXPECT_EQ(value(result.after.image, "rx.agc.enable"), 0) << "what the plan sets stays";
    size_t bought = 0;
    for (const Effect &effect : result.effects)
      bought += effect.lost > 0.01;
    EXPECT_EQ(bought, 1u);
    EXPECT_LE(result.effects.size(), 2u);
    MadeEvaluator other; // everything is in the log
    History again(at(fmt::format("log-{}", int(method))), other.identity());
    tune(plan, before, other, again, options, [](const Candidate &, const Candidate &, size_t n) { EXPECT_EQ(n, 0u); });
    EXPECT_EQ(other.deaths, 0u);
  }
}

} // namespace
} // namespace qv::tool::tune
