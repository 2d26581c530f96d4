#include "fleet/merge.h"

#include "fleet/shard.h"
#include "support/output_file.h"

namespace qv::tool::fleet {

Merged merge(const Run &run, const std::function<void(const Json &result)> &each) {
  Merged merged{run.folder + "/results.jsonl", 0, {}, 0, 0};
  OutputFile file(merged.path);
  for (size_t i = 0; i < run.shard_count(); ++i) {
    const Shard shard = read_shard(run, i);
    merged.cpu_seconds += shard.cpu_seconds;
    for (const std::string &line : shard.lines) {
      file.write(line + "\n");
      const Json result = Json::parse(line);
      if (is_failed(result)) {
        merged.failed.push_back({result["name"], result["failed"]});
        continue;
      }
      ++merged.results;
      merged.seconds += double(result["seconds"]);
      each(result);
    }
  }
  file.commit();
  return merged;
}

} // namespace qv::tool::fleet
