#include "fleet/coordinator.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <fmt/ranges.h>

#include "fleet/shard.h"
#include "support/child.h"
#include "support/error.h"
#include "support/output_file.h"
#include "support/progress.h"

namespace qv::tool::fleet {
namespace {

/// Measures a shard in a process of its own, once more when that fails. @return what it said when it gave up
std::string attempt(const Run &run, size_t shard) {
  std::string said;
  std::vector<std::string> command = worker_of(run);
  command.push_back(std::to_string(shard));
  for (int i = 0; i < attempts; ++i) {
    const ChildResult result = run_child(command);
    if (result.status == 0)
      return "";
    said = result.messages.empty() ? fmt::format("ended with status {}\n", result.status) : result.messages;
  }
  return fmt::format("shard {}: {}", shard, said);
}

} // namespace

Lock::Lock(const std::string &folder) {
  std::filesystem::create_directories(folder);
  const std::string path = folder + "/lock";
  descriptor_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (descriptor_ < 0)
    throw InputError("{}: cannot be written: {}", path, std::strerror(errno));
  char holder[256] = {};
  if (flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
    const bool held = errno == EWOULDBLOCK && read(descriptor_, holder, sizeof holder - 1) >= 0;
    close(descriptor_);
    throw InputError("{}: {}", folder,
                     held ? fmt::format("{} is at it; wait for it, or end it", holder)
                          : fmt::format("cannot be locked: {}", std::strerror(errno)));
  }
  char host[128] = {};
  gethostname(host, sizeof host - 1);
  const std::string name = fmt::format("process {} on {}", getpid(), host);
  if (ftruncate(descriptor_, 0) != 0 || pwrite(descriptor_, name.data(), name.size(), 0) != ssize_t(name.size()))
    throw InputError("{}: cannot be written: {}", path, std::strerror(errno));
}

Lock::~Lock() { close(descriptor_); }

double shard_seconds(const Workers &workers, double cost) {
  constexpr double most = 120, usual = 5, least = 1;
  if (workers.shard_seconds || workers.on != Engine::local)
    return workers.shard_seconds.value_or(most);
  // small enough for every process to get several, long enough for its start not to matter; of little work one each
  return std::min(std::clamp(cost / (8 * workers.parallel), usual, most), std::max(cost / workers.parallel, least));
}

bool measure_missing(const Run &run, const Workers &workers) {
  const std::vector<size_t> shards = missing(run);
  if (!shards.empty() && workers.on == Engine::local)
    run_local(run, shards, workers.parallel);
  else if (!shards.empty() && workers.on == Engine::slurm)
    run_slurm(run, shards, workers);
  else if (!shards.empty())
    write_commands(run, shards);
  return shards.empty() || workers.on != Engine::commands;
}

std::vector<std::string> worker_of(const Run &run) {
  // once: a tool that is replaced meanwhile has another name there
  static const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
  return {program, "worker", std::filesystem::absolute(run.folder).string()};
}

std::string shell_line(const std::vector<std::string> &words) {
  std::string line;
  for (const std::string &word : words) {
    line += line.empty() ? "'" : " '";
    for (const char c : word)
      line += c == '\'' ? "'\\''" : std::string(1, c);
    line += "'";
  }
  return line;
}

void run_local(const Run &run, const std::vector<size_t> &shards, int parallel) {
  Progress progress("shards");
  std::atomic<size_t> next = 0;
  std::mutex reporting;
  size_t done = 0;
  std::vector<std::string> complaints;
  const auto work = [&] {
    for (size_t i; (i = next++) < shards.size();) {
      const std::string complaint = attempt(run, shards[i]);
      const std::lock_guard lock(reporting);
      if (!complaint.empty())
        complaints.push_back(complaint);
      progress(++done, shards.size());
    }
  };
  {
    std::vector<std::jthread> workers;
    for (int i = 0; i < parallel; ++i)
      workers.emplace_back(work);
  }
  if (!complaints.empty())
    throw std::runtime_error(fmt::format("{} of {} shards failed {} times; the same command goes on with them\n{}",
                                         complaints.size(), shards.size(), attempts, fmt::join(complaints, "")));
}

void write_commands(const Run &run, const std::vector<size_t> &shards) {
  OutputFile file(run.folder + "/commands");
  for (const size_t shard : shards)
    file.write(fmt::format("{} {}\n", shell_line(worker_of(run)), shard));
  file.commit();
}

} // namespace qv::tool::fleet
