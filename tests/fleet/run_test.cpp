// Runs that last: cut into shards, interrupted, taken up, brought together.

#include <csignal>
#include <sys/wait.h>

#include "fleet/coordinator.h"
#include "fleet/merge.h"
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
    return take_up(at(name), set, {make_setup({}, 8000, 20)}, {20}, shard_seconds);
  }
  int measure(const std::string &words) const { return run_command(folder, "measure --set calls " + words).status; }
  /// A shell line in the folder, $QV the tool.
  int shell(const std::string &line) const {
    const int status = std::system(fmt::format("cd {} && QV={} && export PATH={}/bin:$PATH && {}", folder.string(),
                                               QVVOICE_COMMAND, folder.string(), line)
                                       .c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  void put_program(const std::string &name, const std::string &text) const {
    fs::create_directories(folder / "bin");
    fs::permissions(put("bin/" + name, "#!/bin/sh\n" + text), fs::perms::owner_all);
  }
};

Json made_result(const Entry &entry, int) {
  return {
      {"name", entry.name}, {"rate", 8000}, {"frame_ms", 20}, {"seconds", 24.0}, {"measures", {{"erle_far_db", 1}}}};
}

// What dies in the middle of a shard costs one recording, and the shard says which.
TEST_F(Fleet, a_recording_that_ends_its_process_is_named_and_the_rest_goes_on) {
  const fleet::Run run = begin("run", 7, 3.9);
  ASSERT_EQ(run.shard_count(), 3u);
  const auto dying = [](const Entry &entry, int ms) {
    if (std::get<sets::Drawn>(entry.source).index == 4)
      std::raise(SIGSEGV);
    if (std::get<sets::Drawn>(entry.source).index == 5)
      throw InputError("mic.wav: no such file");
    return made_result(entry, ms);
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
  work(run, 1, [](const Entry &, int) -> Json { throw std::logic_error("measured again"); });
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
