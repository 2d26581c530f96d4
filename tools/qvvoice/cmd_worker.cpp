// The verb `worker`: measures one shard of a run. Coordinators start it; any engine that runs commands can.

#include <memory>

#include "fleet/worker.h"
#include "verbs.h"

namespace qv::tool {
namespace {

constexpr const char *examples = R"(
Any engine runs the lines of the file that --on commands writes, such as GNU parallel
  qvvoice measure --set calls --run tonight --on commands
  parallel <tonight/commands
docs/fleet.md tells more.)";

struct Options {
  std::string run;
  size_t shard = 0;
};

} // namespace

void add_worker(CLI::App &app) {
  const auto options = std::make_shared<Options>();
  CLI::App *verb = app.add_subcommand("worker", "Measures one shard of a run that qvvoice measure --run has begun");
  verb->footer(examples);
  verb->add_option("run", options->run, "Its folder")->type_name("DIR")->required();
  verb->add_option("shard", options->shard, "From 0; one that has results is left alone")->required();
  verb->callback([options] {
    const fleet::Run run = fleet::open_run(options->run);
    fleet::work(run, options->shard, fleet::measuring(run));
  });
}

} // namespace qv::tool
