#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <system_error>

#include <fmt/ranges.h>

#include "fleet/coordinator.h"
#include "fleet/shard.h"
#include "support/child.h"
#include "support/error.h"
#include "support/output_file.h"
#include "support/progress.h"

namespace qv::tool::fleet {
namespace {

constexpr size_t tasks_of_a_job = 1000; ///< Slurm's MaxArraySize is 1001 unless a cluster sets another
constexpr int looks_between_questions = 5;

using Clock = std::chrono::steady_clock;

/// One of Slurm's commands. What does not answer has failed, and says so.
ChildResult run_or_refuse(const std::vector<std::string> &words, std::chrono::milliseconds limit) try {
  return run_child(words, limit);
} catch (const std::system_error &error) {
  if (error.code() == std::errc::timed_out)
    return {"", fmt::format("no answer within {:g} s\n", 1e-3 * double(limit.count())), 128 + SIGKILL};
  throw InputError("{}: cannot be run: {}; --on slurm needs Slurm's commands", words[0], error.code().message());
}

/// Interrupts are taken between two looks at the results, not when they come.
class HeldInterrupts {
public:
  HeldInterrupts() {
    sigemptyset(&held_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
      sigaddset(&held_, signal);
    pthread_sigmask(SIG_BLOCK, &held_, &before_);
  }
  ~HeldInterrupts() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

  /// @return the signal that has come meanwhile, or 0
  int wait(std::chrono::milliseconds time_span) const {
    const timespec time{time_span.count() / 1000, time_span.count() % 1000 * 1'000'000};
    return std::max(sigtimedwait(&held_, nullptr, &time), 0);
  }

private:
  sigset_t held_, before_;
};

class Jobs {
public:
  Jobs(const Run &run, const Workers &slurm)
      : run_(run), slurm_(slurm), folder_(std::filesystem::absolute(run.folder).string() + "/slurm") {
    std::filesystem::create_directories(folder_);
  }

  void submit(const std::vector<size_t> &shards) {
    ids_.clear();
    for (size_t begin = 0; begin < shards.size(); begin += tasks_of_a_job)
      submit_array(std::vector(shards.begin() + std::ptrdiff_t(begin),
                               shards.begin() + std::ptrdiff_t(std::min(begin + tasks_of_a_job, shards.size()))));
  }

  /// A controller that does not answer is waited for; one that has forgotten the jobs has ended them.
  /// @throws InputError when it has given no answer for long
  bool in_queue() {
    const ChildResult queue =
        run_or_refuse({"squeue", "--noheader", "--format=%i", "--jobs", joined()}, slurm_.waiting.answer);
    const bool forgotten = queue.messages.find("Invalid job id") != std::string::npos;
    if (queue.status == 0 || forgotten) {
      alive();
      return !forgotten && queue.output.find_first_not_of(" \n") != std::string::npos;
    }
    if (Clock::now() - last_sign_ > slurm_.waiting.patience)
      throw InputError(
          "squeue: found no answer and no new result for {:g} s; a controller that answers is needed. Jobs {} "
          "may go on; so does the same command. It said: {}",
          1e-3 * double(slurm_.waiting.patience.count()), joined(), queue.messages);
    return true;
  }

  void alive() { last_sign_ = Clock::now(); } ///< there is an answer, or a new result

  void cancel() const {
    for (const std::string &id : ids_)
      run_or_refuse({"scancel", id}, slurm_.waiting.answer);
  }

private:
  std::string joined() const { return fmt::format("{}", fmt::join(ids_, ",")); }

  /// Task k measures the shard in line k of a list.
  void submit_array(const std::vector<size_t> &shards) {
    const std::string list = fmt::format("{}/list-{}-{}", folder_, shards.front(), shards.size());
    const std::string script = list + ".sh";
    OutputFile lines(list), text(script);
    for (const size_t shard : shards)
      lines.write(fmt::format("{}\n", shard));
    text.write(fmt::format("#!/bin/sh\nshard=$(sed -n \"${{SLURM_ARRAY_TASK_ID}}p\" {})\nexec {} \"$shard\"\n",
                           shell_line({list}), shell_line(worker_of(run_))));
    lines.commit();
    text.commit();
    std::vector<std::string> words = {
        "sbatch",
        "--parsable",
        "--requeue",
        "--job-name=qvvoice",
        "--ntasks=1",
        fmt::format("--output={}/%A_%a.txt", folder_),
        fmt::format("--array=1-{}{}", shards.size(), slurm_.at_most > 0 ? fmt::format("%{}", slurm_.at_most) : "")};
    for (const auto &[option, value] :
         {std::pair("--partition=", &slurm_.partition), {"--account=", &slurm_.account}, {"--time=", &slurm_.time}})
      if (!value->empty())
        words.push_back(option + *value);
    words.insert(words.end(), slurm_.words.begin(), slurm_.words.end());
    words.push_back(script);
    const ChildResult submitted = run_or_refuse(words, slurm_.waiting.answer);
    if (submitted.status != 0)
      throw InputError("sbatch: failed: {}", submitted.messages);
    ids_.push_back(submitted.output.substr(0, submitted.output.find_first_of(";\n")));
  }

  const Run &run_;
  const Workers &slurm_;
  std::string folder_;
  std::vector<std::string> ids_;
  Clock::time_point last_sign_ = Clock::now();
};

/// Waits until all results are there or no job is left. @return the shards without results
std::vector<size_t> wait_for(const Run &run, Jobs &jobs, const HeldInterrupts &interrupts, std::vector<size_t> shards,
                             std::chrono::milliseconds look_every, const ProgressFn &progress) {
  const size_t total = shards.size();
  for (int look = 1;; ++look) {
    // asked before the results are looked at: what ends in between has its results there
    const bool left = look % looks_between_questions != 0 || jobs.in_queue();
    if (std::erase_if(shards, [&](size_t shard) { return is_done(run, shard); }) > 0)
      jobs.alive();
    progress(total - shards.size(), total);
    if (shards.empty() || !left)
      return shards;
    if (const int signal = interrupts.wait(look_every)) {
      jobs.cancel();
      std::signal(signal, SIG_DFL);
      raise(signal); // held back until the caller lets go
      fmt::print(stderr, "\nqvvoice: its jobs are cancelled; the same command goes on\n");
      return shards;
    }
  }
}

bool interrupted() {
  sigset_t pending;
  sigpending(&pending);
  return sigismember(&pending, SIGINT) || sigismember(&pending, SIGTERM) || sigismember(&pending, SIGHUP);
}

} // namespace

void run_slurm(const Run &run, const std::vector<size_t> &shards, const Workers &workers) {
  const HeldInterrupts interrupts;
  Progress progress("shards"); // whose thread holds them back too
  Jobs jobs(run, workers);
  std::vector<size_t> left = shards;
  for (int i = 0; i < attempts && !left.empty() && !interrupted(); ++i) {
    jobs.submit(left);
    left = wait_for(run, jobs, interrupts, left, workers.waiting.look, std::ref(progress));
  }
  if (!left.empty() && !interrupted())
    throw std::runtime_error(
        fmt::format("{} of {} shards have no results after {} attempts: {}; {}/slurm has what they said", left.size(),
                    shards.size(), attempts, fmt::join(left, " "), run.folder));
}

} // namespace qv::tool::fleet
