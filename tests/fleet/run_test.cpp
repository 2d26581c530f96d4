// Runs that last: cut into shards, interrupted, taken up, brought together.

#include <csignal>
#include <sys/wait.h>
#include <thread>

#include "fleet/coordinator.h"
#include "fleet/merge.h"
#include "fleet/shard.h"
#include "fleet/worker.h"
#include "process/files.h"
#include "support.h"

namespace qv::tool::fleet {
namespace {

class Fleet : public InFolder {
protected:
  /// Recordings of 2 s of noise.
  void put_recordings(size_t count) const {
    for (size_t i = 0; i < count; ++i) {
      const std::string name = fmt::format("calls/{:02}", i);
      fs::create_directories(folder / name);
      const auto ref = test::noise_samples(uint32_t(i), 16000, 3000);
      put_wav(name + "/ref.wav", 8000, ref);
      put_wav(name + "/mic.wav", 8000, ref);
    }
  }
  fleet::Run begin(const std::string &name, size_t recordings, double shard_seconds) const {
    std::vector<Entry> set;
    for (size_t i = 0; i < recordings; ++i)
      set.push_back(sets::drawn_entry({scene::Family::usual, scene::Part::tune, 1, i}, 8000));
    return take_up(at(name), set, {make_setup({}, 8000, 20)}, shard_seconds);
  }
  int measure(const std::string &words) const { return run_command(folder, "measure --set calls " + words).status; }
};

Json made_result(const Entry &entry, size_t) {
  return {
      {"name", entry.name}, {"rate", 8000}, {"frame_ms", 20}, {"seconds", 24.0}, {"measures", {{"erle_far_db", 1}}}};
}

// What dies in the middle of a shard costs one recording, and the shard says which.
TEST_F(Fleet, a_recording_that_ends_its_process_is_named_and_the_rest_goes_on) {
  const fleet::Run run = begin("run", 7, 3.9);
  ASSERT_EQ(run.shard_count(), 3u);
  const auto dying = [](const Entry &entry, size_t nth) {
    if (std::get<sets::Drawn>(entry.source).index == 4)
      std::raise(SIGSEGV);
    if (std::get<sets::Drawn>(entry.source).index == 5)
      throw InputError("mic.wav: no such file");
    return made_result(entry, nth);
  };
  for (size_t shard = 0; shard < run.shard_count(); ++shard)
    work(run, shard, dying);
  size_t called = 0;
  const Merged merged = merge(run, [&](const Json &) { ++called; });
  EXPECT_EQ(called, 5u);
  ASSERT_EQ(merged.failed.size(), 2u);
  EXPECT_EQ(merged.failed[0].name, "usual-tune-1-00004-8k");
  EXPECT_NE(merged.failed[0].message.find("signal 11"), std::string::npos);
  EXPECT_EQ(merged.failed[1].message, "mic.wav: no such file");
  work(run, 1, [](const Entry &, size_t) -> Json { throw std::logic_error("measured again"); });
  EXPECT_EQ(merge(run, [](const Json &) {}).results, 5u) << "what is there is not done again";
}

TEST_F(Fleet, results_of_another_run_and_torn_ones_are_never_mixed_in) {
  const fleet::Run run = begin("run", 4, 3.9), other = begin("other", 5, 3.9);
  for (size_t shard = 0; shard < 2; ++shard) {
    work(run, shard, made_result);
    work(other, shard, made_result);
  }
  const std::string whole = bytes_of(run.shard_path(1));
  const auto nothing = [](const Json &) {};
  fs::copy_file(other.shard_path(1), run.shard_path(1), fs::copy_options::overwrite_existing);
  EXPECT_NE(refusal([&] { missing(run); }).find("is of another run"), std::string::npos);
  put("run/shards/000001.jsonl", whole.substr(0, whole.find('\n') + 1));
  EXPECT_NE(refusal([&] { merge(run, nothing); }).find("has 0 results; 1 are needed"), std::string::npos)
      << refusal([&] { merge(run, nothing); });
  put("run/shards/000001.jsonl", whole.substr(0, whole.size() - 9));
  EXPECT_NE(refusal([&] { merge(run, nothing); }).find("is no result"), std::string::npos);
  fs::remove(run.shard_path(1));
  EXPECT_EQ(missing(run), std::vector<size_t>{1});
  EXPECT_NE(refusal([&] { merge(run, nothing); }).find("is missing"), std::string::npos);
  EXPECT_FALSE(fs::exists(at("run/results.jsonl"))) << "whole or not at all";

  EXPECT_NE(refusal([&] { begin("run", 5, 3.9); }).find("set.recordings is 4 there, 5 here"), std::string::npos);
  std::string described = bytes_of(at("run/run.json"));
  const size_t at_behaviour = described.find("\"behaviour\":\"") + 13;
  described[at_behaviour] = described[at_behaviour] == '0' ? '1' : '0';
  put("run/run.json", described);
  for (const std::string &message : {refusal([&] { open_run(at("run")); }), refusal([&] { begin("run", 4, 3.9); })})
    EXPECT_NE(message.find("library.behaviour"), std::string::npos) << message;
}

TEST_F(Fleet, a_second_coordinator_is_refused) {
  put_recordings(1);
  const Lock first(at("run"));
  const CommandResult second = run_command(folder, "measure --set calls --run run");
  EXPECT_EQ(second.status, 2);
  EXPECT_NE(second.err.find(fmt::format("process {} on ", getpid())), std::string::npos) << second.err;
}

// However many workers, whatever the cut, whatever was lost on the way.
TEST_F(Fleet, gives_the_same_bytes_on_every_engine_and_after_every_loss) {
  put_recordings(6);
  const std::string cut = " --frame-ms 16 20 --shard-seconds 0.03";
  ASSERT_EQ(measure("--run one -j 1 --frame-ms 16 20 --shard-seconds 60"), 0);
  ASSERT_EQ(measure("--run many -j 3" + cut), 0);
  const std::string expected = bytes_of(at("one/results.jsonl"));
  EXPECT_EQ(std::ranges::count(expected, '\n'), 12);
  EXPECT_TRUE(bytes_of(at("many/results.jsonl")) == expected);
  fs::remove(at("many/shards/000001.jsonl"));
  const auto kept = fs::last_write_time(at("many/shards/000000.jsonl"));
  ASSERT_EQ(measure("--run many" + cut), 0);
  EXPECT_TRUE(bytes_of(at("many/results.jsonl")) == expected);
  EXPECT_EQ(fs::last_write_time(at("many/shards/000000.jsonl")), kept) << "what is there is not done again";

  EXPECT_EQ(
      shell("$QV measure --set calls --run \"it's one\" --on commands >said" + cut + " && sh \"it's one/commands\""),
      0);
  EXPECT_EQ(bytes_of(at("said")), "it's one/commands\n");
  ASSERT_EQ(shell("$QV measure --set calls --run \"it's one\" >said" + cut), 0);
  EXPECT_TRUE(bytes_of(at("it's one/results.jsonl")) == expected);

  ASSERT_EQ(measure("--run lines --on commands" + cut), 0);
  EXPECT_FALSE(fs::exists(at("lines/results.jsonl")));
  // a full disk, as the limit on a file's size shows it: nothing half-written, and the shard is measured later
  EXPECT_EQ(shell("(ulimit -f 1; $QV worker lines 0 2>full)"), 2);
  EXPECT_NE(bytes_of(at("full")).find("writing failed"), std::string::npos) << bytes_of(at("full"));
  EXPECT_TRUE(fs::is_empty(at("lines/shards")));
  EXPECT_EQ(shell("sh lines/commands"), 0);
  fs::rename(at("calls/03"), at("away")); // everything has been measured: nothing is opened in vain
  EXPECT_EQ(measure("--run lines --on commands" + cut), 2) << "the set is checked before anything else";
  fs::rename(at("away"), at("calls/03"));
  ASSERT_EQ(measure("--run lines --on commands" + cut), 0);
  EXPECT_TRUE(bytes_of(at("lines/results.jsonl")) == expected);
}

// A recording that was away is measured again, alone, and stands in its place; its neighbours' lines are left as they
// are.
TEST_F(Fleet, what_failed_is_measured_again_and_nothing_else) {
  put_recordings(5);
  const std::string cut = " --frame-ms 16 20 --shard-seconds 0.05";
  ASSERT_EQ(measure("--run whole -j 1" + cut), 0);
  ASSERT_EQ(measure("--run run --on commands" + cut), 0);
  fs::rename(at("calls/03"), at("away"));
  ASSERT_EQ(shell("sh run/commands"), 0);
  fs::rename(at("away"), at("calls/03"));
  ASSERT_EQ(measure("--run run" + cut), 2) << "it failed, and stays failed unless asked";
  const std::string failed = bytes_of(at("run/results.jsonl"));
  EXPECT_NE(failed.find("\"failed\""), std::string::npos);
  std::string mark; // on a neighbour in the same shard
  for (const auto &file : fs::directory_iterator(at("run/shards")))
    if (std::string text = bytes_of(file.path()); text.find(R"("name":"03")") != text.npos) {
      const size_t place = text.find(R"("tags":{})");
      ASSERT_NE(place, text.npos) << "a shard of more than the failed recording is needed";
      put(fs::relative(file.path(), folder), text.replace(place, 9, R"("tags":{"mark":"1"})"));
      mark = text;
    }
  ASSERT_FALSE(mark.empty());
  ASSERT_EQ(measure("--run run --again --on commands" + cut), 0);
  EXPECT_EQ(std::ranges::count(bytes_of(at("run/commands")), '\n'), 1) << "of one shard";
  ASSERT_EQ(measure("--run run" + cut), 0);
  std::string again = bytes_of(at("run/results.jsonl"));
  const size_t place = again.find(R"("tags":{"mark":"1"})");
  ASSERT_NE(place, again.npos) << "what had not failed was measured again";
  EXPECT_TRUE(again.replace(place, 19, R"("tags":{})") == bytes_of(at("whole/results.jsonl")));
  ASSERT_EQ(measure("--run run --again" + cut), 0) << "nothing is left to measure";
}

// A controller that is gone must not hold the tool for ever, whether squeue fails or hangs; nor a hanging sbatch.
TEST_F(Fleet, a_cluster_that_does_not_answer_is_given_up_and_named) {
  const fleet::Run run = begin("run", 3, 1);
  ASSERT_EQ(run.shard_count(), 3u);
  using namespace std::chrono_literals;
  Workers workers;
  workers.on = Engine::slurm;
  workers.waiting = {.look = 5ms, .answer = 200ms, .patience = 300ms};
  const std::string path = getenv("PATH");
  setenv("PATH", (at("bin") + ":" + path).c_str(), 1);
  put_program("sbatch", "echo 77\n");
  for (const auto &[squeue, said] : {std::pair("echo Unable to contact >&2; exit 1\n", "Unable to contact"),
                                     {"exec sleep 60\n", "no answer within 0.2 s"}}) {
    put_program("squeue", squeue);
    const std::string refused = refusal([&] { measure_missing(run, workers); });
    EXPECT_NE(refused.find("squeue: found no answer and no new result for 0.3 s"), std::string::npos) << refused;
    EXPECT_NE(refused.find("Jobs 77"), std::string::npos) << refused;
    EXPECT_NE(refused.find(said), std::string::npos) << refused;
  }
  // results that come all the same are a sign of life
  put_program("squeue", "exit 1\n");
  std::jthread late([&] {
    for (size_t shard = 0; shard < run.shard_count(); ++shard) {
      std::this_thread::sleep_for(200ms);
      work(run, shard, made_result);
    }
  });
  EXPECT_TRUE(measure_missing(run, workers));
  late.join();
  fs::remove_all(at("run/shards"));
  fs::create_directories(at("run/shards"));
  put_program("sbatch", "exec sleep 60\n");
  EXPECT_NE(refusal([&] { measure_missing(run, workers); }).find("sbatch: failed: no answer within 0.2 s"),
            std::string::npos);
  setenv("PATH", path.c_str(), 1);
}

// Every result is in one shard, none is longer than asked for, and what a shard names is what it measures.
TEST_F(Fleet, shards_hold_every_result_once) {
  std::vector<Entry> set;
  for (size_t i = 0; i < 9; ++i)
    set.push_back(sets::drawn_entry({scene::Family::usual, scene::Part::tune, 1, i}, i % 2 ? 8000 : 16000));
  std::vector<qv::tool::Setup> setups;
  for (const int rate : {8000, 16000})
    for (const int ms : {16, 20, 16})
      setups.push_back(make_setup({}, rate, ms));
  const double one = cost_of({set[0]}, 1), most = cost_of({set[0]}, 3);
  EXPECT_LT(most, 2 * one) << "a recording is made once";
  for (const double seconds : {0.01, one, 2.1 * most, 1e9}) {
    const fleet::Run run = take_up(at(fmt::format("run-{}", seconds)), set, setups, seconds);
    std::vector<std::string> measured;
    for (size_t shard = 0; shard < run.shard_count(); ++shard) {
      EXPECT_LE(cost_of(recordings_of(run, shard), 1), seconds + 2 * most) << "of " << run.shard_count();
      EXPECT_GT(run.results_of(shard), 0u);
      work(run, shard, [&](const Entry &entry, size_t nth) -> Json {
        const qv::tool::Setup &setup = run.setup(entry.rate, nth);
        return {{"at", fmt::format("{} {} {}", entry.name, setup.rate, setup.frame_len)}};
      });
      for (const std::string &line : read_shard(run, shard).lines)
        measured.push_back(Json::parse(line).at("at"));
    }
    std::vector<std::string> expected;
    for (const Entry &entry : set)
      for (const int ms : {16, 20, 16})
        expected.push_back(fmt::format("{} {} {}", entry.name, entry.rate, entry.rate / 1000 * ms));
    EXPECT_EQ(measured, expected) << seconds;
    EXPECT_EQ(run.shard_count(), seconds < 1 ? 27u : seconds > 1e3 ? 1u : run.shard_count());
  }
}

// The means that a run prints are those of measure --set, which goes another way to them.
TEST_F(Fleet, measures_what_a_set_in_memory_does) {
  put_recordings(3);
  const CommandResult lasting = run_command(folder, "measure --set calls --run run --json --frame-ms 16 20");
  const CommandResult once = run_command(folder, "measure --set calls --json --frame-ms 16 20");
  const Json a = Json::parse(lasting.out)["means"], b = Json::parse(once.out)["means"];
  ASSERT_EQ(a.size(), 2u);
  size_t compared = 0;
  for (size_t layout = 0; layout < 2; ++layout)
    for (const auto &[key, mean] : a[layout]["measures"].items()) {
      const auto same =
          std::ranges::find_if(b, [&](const Json &one) { return one["frame_ms"] == a[layout]["frame_ms"]; });
      ASSERT_NE(same, b.end());
      EXPECT_NEAR(double(mean), double((*same)["measures"].at(key)), 1e-9) << key;
      ++compared;
    }
  EXPECT_GE(compared, 10u);
  // and a file whose rate has changed since the run began is named, not measured with other parameters
  const fleet::Run run = take_up(at("changed"), sets::checked(at("calls")), {make_setup({}, 8000, 20)}, 60);
  for (const char *file : {"mic.wav", "ref.wav"})
    put_wav(std::string("calls/01/") + file, 16000, test::noise_samples(1, 32000, 3000));
  work(run, 0, measuring(run));
  const Merged merged = merge(run, [](const Json &) {});
  ASSERT_EQ(merged.failed.size(), 1u);
  EXPECT_EQ(merged.failed[0].name, "01");
  EXPECT_NE(merged.failed[0].message.find("has 16000 Hz"), std::string::npos) << merged.failed[0].message;
}

// Slurm's arrays have an end: what is more goes into further jobs, each shard into one.
TEST_F(Fleet, many_shards_are_several_arrays) {
  const fleet::Run run = begin("run", 1003, 0.01);
  ASSERT_EQ(run.shard_count(), 1003u);
  for (const size_t done : {0, 500})
    work(run, done, made_result);
  put_program("sbatch", "for word; do case $word in --array=*) echo ${word#--array=} >>arrays ;; esac; done; echo 7\n");
  put_program("squeue", "exit 0\n");
  const std::string path = getenv("PATH");
  setenv("PATH", (at("bin") + ":" + path).c_str(), 1);
  Workers workers;
  workers.on = Engine::slurm;
  workers.waiting.look = std::chrono::milliseconds(1);
  const fs::path here = fs::current_path();
  fs::current_path(folder);
  std::string said;
  try {
    measure_missing(run, workers);
  } catch (const std::runtime_error &error) {
    said = error.what();
  }
  fs::current_path(here);
  setenv("PATH", path.c_str(), 1);
  EXPECT_NE(said.find("1001 of 1001 shards have no results after 3 attempts"), std::string::npos) << said;
  EXPECT_EQ(bytes_of(at("arrays")), "1-1000\n1-1\n1-1000\n1-1\n1-1000\n1-1\n");
  std::set<size_t> listed;
  for (const auto &file : fs::directory_iterator(at("run/slurm")))
    if (file.path().extension().empty()) {
      std::ifstream lines(file.path());
      for (size_t shard; lines >> shard;)
        EXPECT_TRUE(listed.insert(shard).second) << shard << " is listed twice";
    }
  EXPECT_EQ(listed.size(), 1001u);
  EXPECT_FALSE(listed.contains(500));
}

/// A cluster of one script: sbatch runs all tasks of the array but the first of the first job, which is preempted for
/// good.
constexpr const char *cluster = R"(echo "$@" >>asked
id=$(wc -l <asked)
for word; do case $word in --array=*) range=${word#--array=1-} ;; esac; script=$word; done
[ "$range" = "${range%\%2}" ] && exit 1
for task in $(seq "${range%\%2}"); do
  [ "$id$task" = 11 ] || SLURM_ARRAY_TASK_ID=$task sh "$script"
done
echo "$id"
)";

TEST_F(Fleet, on_slurm_what_fails_is_submitted_again_and_an_interrupt_cancels) {
  put_recordings(5);
  ASSERT_EQ(measure("--run local"), 0);
  EXPECT_EQ(measure("--run local --partition p"), 2); // of no cluster
  put_program("sbatch", cluster);
  put_program("squeue", "exit 0\n");
  put_program("scancel", "echo cancelled $1 >>asked\n");
  const std::string on = "$QV measure --set calls --run far --on slurm --shard-seconds 0.01 --at-most 2 ";
  ASSERT_EQ(shell(on + "--partition p --account a --time 5 --sbatch=--mem=1G >out 2>err"), 0) << bytes_of(at("err"));
  const std::string asked = bytes_of(at("asked"));
  for (const char *word : {"--partition=p", "--account=a", "--time=5", "--mem=1G", "--array=1-5%2", "--array=1-1%2"})
    EXPECT_NE(asked.find(word), std::string::npos) << word << "\n" << asked;
  EXPECT_TRUE(bytes_of(at("far/results.jsonl")) == bytes_of(at("local/results.jsonl")));

  fs::remove_all(at("far"));
  put_program("sbatch", "echo 77\n");
  put_program("squeue", "echo 77_1\n");
  EXPECT_NE(shell("timeout -s INT 1 " + on + "2>err"), 0);
  EXPECT_NE(bytes_of(at("asked")).find("cancelled 77\n"), std::string::npos) << bytes_of(at("err"));
  put_program("sbatch", "echo no such account >&2; exit 1\n");
  EXPECT_EQ(shell(on + "2>err"), 2);
  EXPECT_NE(bytes_of(at("err")).find("no such account"), std::string::npos);
}

} // namespace
} // namespace qv::tool::fleet
