#include "fleet/merge.h"

#include <fstream>

#include "support/error.h"
#include "support/output_file.h"

namespace qv::tool::fleet {
namespace {

void merge_shard(const Run &run, size_t shard, OutputFile &results, Merged &merged,
                 const std::function<void(const Json &)> &each) {
  const std::string path = run.shard_path(shard);
  std::ifstream file(path);
  std::string line;
  if (!std::getline(file, line) || !is_done(run, shard))
    throw InputError("{}: is missing; the same command measures what is missing", path);
  merged.cpu_seconds += Json::parse(line).value("cpu_seconds", 0.0);
  size_t count = 0;
  while (std::getline(file, line)) {
    const Json result = Json::parse(line, nullptr, false);
    if (!result.is_object())
      throw InputError("{}:{}: is no result; remove the file, and the same command measures it again", path, count + 2);
    ++count;
    results.write(line + "\n");
    if (result.contains("failed")) {
      merged.failed.push_back({result["name"], result["failed"]});
      continue;
    }
    ++merged.results;
    merged.seconds += double(result["seconds"]);
    each(result);
  }
  if (count != run.results_of(shard))
    throw InputError("{}: has {} results; {} are needed; remove it, and the same command measures it again", path,
                     count, run.results_of(shard));
}

} // namespace

Merged merge(const Run &run, const std::function<void(const Json &result)> &each) {
  Merged merged{run.folder + "/results.jsonl", 0, {}, 0, 0};
  OutputFile results(merged.path);
  for (size_t shard = 0; shard < run.shard_count(); ++shard)
    merge_shard(run, shard, results, merged, each);
  results.commit();
  return merged;
}

} // namespace qv::tool::fleet
