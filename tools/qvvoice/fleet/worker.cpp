#include "fleet/worker.h"

#include <memory>
#include <sys/resource.h>

#include "fleet/result.h"
#include "support/error.h"
#include "support/output_file.h"
#include "support/worker_pool.h"

namespace qv::tool::fleet {
namespace {

double cpu_seconds() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  const auto seconds = [](const timeval &time) { return double(time.tv_sec) + 1e-6 * double(time.tv_usec); };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

std::vector<std::string> measure_all(const Run &run, const std::vector<Entry> &entries, const Measuring &measuring) {
  const size_t lengths = run.frame_ms.size();
  std::vector<std::string> lines(entries.size() * lengths);
  WorkerPool pool(1, [&](std::string_view order) {
    const size_t job = std::stoul(std::string(order));
    return measuring(entries[job / lengths], run.frame_ms[job % lengths]).dump();
  });
  pool.run(
      lines.size(), [](size_t job) { return std::to_string(job); },
      [&](size_t job, const Reply &reply) {
        const Json failed = {
            {"name", entries[job / lengths].name}, {"frame_ms", run.frame_ms[job % lengths]}, {"failed", reply.text}};
        lines[job] = reply.fine ? reply.text : failed.dump(-1, ' ', false, Json::error_handler_t::replace);
      });
  return lines;
}

} // namespace

Measuring measuring(const Run &run) {
  return [&run, reader = std::make_shared<sets::Reader>()](const Entry &entry, int frame_ms) {
    const measure::Subject subject = reader->read(entry);
    return result_of(subject, entry.tags, run.setup(subject.rate, frame_ms));
  };
}

void work(const Run &run, size_t shard, const Measuring &measuring) {
  if (shard >= run.shard_count())
    throw InputError("{}: has shards 0 to {}, not {}", run.folder, run.shard_count() - 1, shard);
  if (is_done(run, shard))
    return;
  OutputFile file(run.shard_path(shard)); // a place that cannot be written is found before the work
  const std::vector<std::string> lines = measure_all(run, recordings_of(run, shard), measuring);
  const Json head = {{"run", run.id}, {"shard", shard}, {"results", lines.size()}, {"cpu_seconds", cpu_seconds()}};
  file.write(head.dump() + "\n");
  for (const std::string &line : lines)
    file.write(line + "\n");
  file.commit();
}

} // namespace qv::tool::fleet
