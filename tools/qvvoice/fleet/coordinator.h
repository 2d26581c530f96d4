/// @file coordinator.h  Has the shards of a run measured, by whatever runs commands.
#pragma once

#include <chrono>
#include <optional>
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

/// How long a cluster may take.
struct Waiting {
  std::chrono::milliseconds look{2'000};       ///< at results, and five times that at the queue
  std::chrono::milliseconds answer{60'000};    ///< of one of Slurm's commands, which is killed then
  std::chrono::milliseconds patience{600'000}; ///< without an answer from squeue or a new result
};

/// What measures shards.
struct Workers {
  Engine on = Engine::local;
  int parallel = 1;                     ///< processes at a time on this machine
  std::optional<double> shard_seconds;  ///< of a core that a shard takes about; nothing: as it suits the engine
  std::string partition, account, time; ///< of Slurm, as sbatch takes them; empty: its default
  int at_most = 0;                      ///< tasks at a time there; 0: as many as the cluster has room for
  std::vector<std::string> words;       ///< for sbatch, as they are
  Waiting waiting{};
};

/// @param cost  of the whole work, in seconds of a core
double shard_seconds(const Workers &workers, double cost);

/// Has all shards that have no results measured.
/// @return whether all have; with Engine::commands RUN/commands says what to do when not
/// @throws as is_done(), run_local(), run_slurm()
bool measure_missing(const Run &run, const Workers &workers);

/// The command that measures the shard whose number is appended.
std::vector<std::string> worker_of(const Run &run);

/// Words as a shell takes them.
std::string shell_line(const std::vector<std::string> &words);

constexpr int attempts = 3; ///< at a shard, before a run gives up

/// On this machine. @throws std::runtime_error when a shard fails `attempts` times
void run_local(const Run &run, const std::vector<size_t> &shards, int parallel);

/// Writes RUN/commands, a line per shard, for any engine that runs commands.
void write_commands(const Run &run, const std::vector<size_t> &shards);

/// As job arrays on a folder that all nodes see. What is preempted or whose node fails is put back by Slurm, what fails
/// is submitted again. An interrupt cancels the jobs.
/// @throws InputError when sbatch refuses, or Slurm's commands are missing or do not answer; std::runtime_error when
///         shards fail `attempts` times
void run_slurm(const Run &run, const std::vector<size_t> &shards, const Workers &workers);

} // namespace qv::tool::fleet
