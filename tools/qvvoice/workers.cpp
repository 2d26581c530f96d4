#include "workers.h"

#include <thread>

#include "support/error.h"

namespace qv::tool {

void add_workers(CLI::App &verb, fleet::Workers &workers, CLI::Option *run,
                 const std::map<std::string, fleet::Engine> &engines) {
  workers.parallel = int(std::max(1u, std::thread::hardware_concurrency()));
  verb.add_option("-j", workers.parallel, "Processes at a time on this machine (one per core)")
      ->check(CLI::Range(1, 256));
  verb.add_option(
          "--on", workers.on,
          engines.contains("commands")
              ? "What measures the shards: local (processes, default), slurm (job arrays on a shared folder), commands "
                "(writes them to a file for another engine)"
              : "What measures the shards: local (processes, default) or slurm (job arrays on a shared folder)")
      ->transform(CLI::CheckedTransformer(engines))
      ->needs(run);
  verb.add_option("--shard-seconds", workers.shard_seconds,
                  "Work of a shard, about so many seconds of a core (120; with --on local 5 to 120)")
      ->check(CLI::Range(0.01, 1e5))
      ->needs(run);
  verb.add_option("--partition", workers.partition, "Of the cluster")->needs(run);
  verb.add_option("--account", workers.account, "That the cluster charges")->needs(run);
  verb.add_option("--time", workers.time, "Limit for a shard, as sbatch takes it")->needs(run);
  verb.add_option("--at-most", workers.at_most, "Shards at a time on the cluster")
      ->check(CLI::PositiveNumber)
      ->needs(run);
  verb.add_option("--sbatch", workers.words, "Another word for sbatch, as in --sbatch=--mem=2G; may be repeated")
      ->allow_extra_args(false)
      ->needs(run);
  verb.parse_complete_callback([&verb, &workers] {
    for (const char *option : {"--partition", "--account", "--time", "--at-most", "--sbatch"})
      if (workers.on != fleet::Engine::slurm && verb.count(option) > 0)
        throw InputError("{}: is of a cluster; it needs --on slurm", option);
  });
}

} // namespace qv::tool
