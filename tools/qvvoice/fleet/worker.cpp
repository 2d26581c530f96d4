#include "fleet/worker.h"

#include <memory>
#include <sys/resource.h>

#include "fleet/result.h"
#include "fleet/shard.h"
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

/// Fills in what is not measured.
void measure_rest(const Run &run, size_t shard, const Measuring &measuring, std::vector<std::string> &lines) {
  const size_t first = run.shards[shard], per_recording = run.per_recording();
  const std::vector<Entry> entries = recordings_of(run, shard);
  const auto entry_of = [&](size_t i) { return entries[(first + i) / per_recording - first / per_recording]; };
  const auto nth_of = [&](size_t i) { return (first + i) % per_recording; };
  std::vector<size_t> rest;
  for (size_t i = 0; i < lines.size(); ++i)
    if (lines[i].empty())
      rest.push_back(i);
  WorkerPool pool(1, [&](std::string_view order) {
    const size_t i = std::stoul(std::string(order));
    return measuring(entry_of(i), nth_of(i)).dump();
  });
  pool.run(
      rest.size(), [&](size_t job) { return std::to_string(rest[job]); },
      [&](size_t job, const Reply &reply) {
        const size_t i = rest[job];
        const Json failed = {
            {"name", entry_of(i).name}, {"frame_ms", frame_ms_of(run.setups[nth_of(i)])}, {"failed", reply.text}};
        lines[i] = reply.fine ? reply.text : failed.dump(-1, ' ', false, Json::error_handler_t::replace);
      });
}

/// A recording, and what follows from it alone.
struct Read {
  Read(sets::Reader &reader, const Entry &entry) : name(entry.name), subject(reader.read(entry)), known(subject) {}
  std::string name;
  measure::Subject subject;
  measure::Known known;
};

} // namespace

Measuring measuring(const Run &run) {
  auto reader = std::make_shared<sets::Reader>();
  return [&run, reader, read = std::shared_ptr<Read>()](const Entry &entry, size_t nth) mutable {
    if (!read || read->name != entry.name)
      read = std::make_shared<Read>(*reader, entry);
    return result_of(read->known, entry.tags, run.setup(read->subject.rate, nth));
  };
}

void work(const Run &run, size_t shard, const Measuring &measuring) {
  if (shard >= run.shard_count())
    throw InputError("{}: has shards 0 to {}, not {}", run.folder, run.shard_count() - 1, shard);
  if (is_done(run, shard))
    return;
  { const OutputFile place(run.shard_path(shard)); } // what cannot be written is found before the work
  Shard results = kept(run, shard);
  measure_rest(run, shard, measuring, results.lines);
  results.cpu_seconds += cpu_seconds();
  write_shard(run, shard, results);
}

} // namespace qv::tool::fleet
