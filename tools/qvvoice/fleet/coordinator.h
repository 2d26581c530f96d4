/// @file coordinator.h  Has the shards of a run measured, by whatever runs commands.
#pragma once

#include <string>
#include <vector>

#include "fleet/run.h"

namespace qv::tool::fleet {

/// Keeps a second coordinator off a run folder for as long as it lives.
class Lock {
public:
  /// @throws InputError when another one holds it; it names host and process
  explicit Lock(const std::string &folder);
  ~Lock();
  Lock(const Lock &) = delete;
  Lock &operator=(const Lock &) = delete;

private:
  int descriptor_;
};

enum class Engine { local, commands, slurm };

struct Slurm {
  std::string partition, account, time; ///< as sbatch takes them; empty: its default
  int at_most = 0;                      ///< tasks at a time; 0: as many as the cluster has room for
  std::vector<std::string> words;       ///< for sbatch, as they are
};

constexpr int attempts = 3; ///< at a shard, before a run gives up

/// Shards that have no results. @throws as is_done()
std::vector<size_t> missing(const Run &run);

/// The command that measures a shard.
std::vector<std::string> command_of(const Run &run, const std::string &shard);

/// On this machine, so many processes at a time. @throws std::runtime_error when a shard fails `attempts` times
void run_local(const Run &run, const std::vector<size_t> &shards, int parallel);

/// Writes RUN/commands, a line per shard, for any engine that runs commands. @return its path
std::string write_commands(const Run &run, const std::vector<size_t> &shards);

/// As job arrays on a folder that all nodes see. What is preempted or whose node fails is put back by Slurm, what fails
/// is submitted again. An interrupt cancels the jobs.
/// @throws std::runtime_error when sbatch refuses, or shards fail `attempts` times
void run_slurm(const Run &run, const std::vector<size_t> &shards, const Slurm &slurm);

} // namespace qv::tool::fleet
