#include "fleet/shard.h"

#include <filesystem>
#include <fstream>

#include "support/error.h"
#include "support/output_file.h"

namespace qv::tool::fleet {
namespace {

namespace fs = std::filesystem;

std::string aside_path(const Run &run, size_t shard) { return run.shard_path(shard) + ".aside"; }

/// The first line of a shard's file; null when there is none.
Json head_of(const Run &run, std::istream &file, const std::string &path) {
  std::string line;
  if (!std::getline(file, line))
    return {};
  const Json head = Json::parse(line, nullptr, false);
  if (!head.is_object() || head.value("run", Json()) != run.id)
    throw InputError("{}: is of another run; results are never mixed: remove it", path);
  return head;
}

Shard read(const Run &run, size_t shard, const std::string &path) {
  std::ifstream file(path);
  const Json head = head_of(run, file, path);
  if (head.is_null())
    throw InputError("{}: is missing; the same command measures what is missing", path);
  Shard results{head.value("cpu_seconds", 0.0), {}};
  for (std::string line; std::getline(file, line); results.lines.push_back(line))
    if (!Json::accept(line))
      throw InputError("{}:{}: is no result; remove the file, and the same command measures it again", path,
                       results.lines.size() + 2);
  if (results.lines.size() != run.results_of(shard))
    throw InputError("{}: has {} results; {} are needed; remove it, and the same command measures it again", path,
                     results.lines.size(), run.results_of(shard));
  return results;
}

} // namespace

bool is_failed(const Json &result) { return result.contains("failed"); }

bool is_done(const Run &run, size_t shard) {
  const std::string path = run.shard_path(shard);
  std::ifstream file(path);
  return !head_of(run, file, path).is_null();
}

std::vector<size_t> missing(const Run &run) {
  std::vector<size_t> shards;
  for (size_t shard = 0; shard < run.shard_count(); ++shard)
    if (!is_done(run, shard))
      shards.push_back(shard);
  return shards;
}

Shard read_shard(const Run &run, size_t shard) { return read(run, shard, run.shard_path(shard)); }

void write_shard(const Run &run, size_t shard, const Shard &results) {
  OutputFile file(run.shard_path(shard));
  const Json head = {
      {"run", run.id}, {"shard", shard}, {"results", results.lines.size()}, {"cpu_seconds", results.cpu_seconds}};
  file.write(head.dump() + "\n");
  for (const std::string &line : results.lines)
    file.write(line + "\n");
  file.commit();
  fs::remove(aside_path(run, shard));
}

size_t set_aside_failed(const Run &run) {
  size_t failed = 0;
  for (size_t shard = 0; shard < run.shard_count(); ++shard) {
    if (!is_done(run, shard))
      continue;
    const Shard results = read_shard(run, shard);
    const auto here =
        std::ranges::count_if(results.lines, [](const std::string &line) { return is_failed(Json::parse(line)); });
    if (here > 0)
      fs::rename(run.shard_path(shard), aside_path(run, shard));
    failed += size_t(here);
  }
  return failed;
}

Shard kept(const Run &run, size_t shard) {
  const std::string path = aside_path(run, shard);
  if (!fs::exists(path))
    return {0, std::vector<std::string>(run.results_of(shard))};
  Shard results = read(run, shard, path);
  for (std::string &line : results.lines)
    if (is_failed(Json::parse(line)))
      line.clear();
  return results;
}

} // namespace qv::tool::fleet
