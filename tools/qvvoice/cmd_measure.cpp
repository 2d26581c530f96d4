// The verb `measure`: what the library, or another system, makes of a recording or a set.

#include <fstream>
#include <memory>

#include "fleet/database.h"
#include "fleet/shard.h"
#include "fleet/summary.h"
#include "measure/print.h"
#include "para/presets.h"
#include "parameters.h"
#include "recordings.h"
#include "sets/set.h"
#include "support/error.h"
#include "support/progress.h"
#include "support/output_file.h"
#include "support/worker_pool.h"
#include "verbs.h"
#include "workers.h"

namespace qv::tool {
namespace {

using measure::Json;

constexpr const char *examples = R"(
One call with its truth, as qvvoice scene makes it
  qvvoice measure calls/double-talk-16k
A recording of which nothing else is known
  qvvoice measure --mic mic.wav --ref loudspeaker.wav
A whole set at both frame lengths, as a table and as JSON
  qvvoice measure --set calls --frame-ms 16 20
  qvvoice measure --set calls --json > today.json
The recordings that a manifest names: files, or scenes that are made where they are measured (docs/sets.md)
  qvvoice scene --draw 100 --part check --rate 16000 --manifest hundred.jsonl
  qvvoice measure --set hundred.jsonl
The same in a folder that keeps the results and goes on after any interruption; on a cluster (docs/fleet.md)
  qvvoice measure --set hundred.jsonl --run tonight
  qvvoice measure --set hundred.jsonl --run tonight --on slurm --partition night --time 2:00:00
Two parameter files, or another system's outputs (others/double-talk-16k.wav and so on), side by side
  qvvoice measure --set calls --para new8k.bin new16k.bin --against today.json
  qvvoice measure --set calls --against others
docs/measures.md defines every measure.)";

struct Options {
  Recordings recordings;
  std::string out;
  int out_delay = 0;
  std::vector<std::string> para;
  std::vector<int> frame_ms = {20};
  std::string against;
  std::vector<std::string> columns;
  bool list = false, json = false, csv = false;
  std::string run;      ///< folder of a run that lasts
  std::string database; ///< empty: fleet.db beside that folder
  bool again = false;   ///< what has failed in it
  fleet::Workers workers;
};

Json measure_one(const Options &options, const std::string &out) {
  const measure::Subject subject = options.recordings.read_one();
  const auto run = [&] {
    const Setup setup = setup_for(options.para, subject.rate, options.frame_ms[0]);
    Progress bar("processing");
    return measure::run_library(subject, setup, std::ref(bar));
  };
  const measure::Output output = out.empty() ? run() : measure::read_output(subject, out, options.out_delay);
  Progress bar("measuring");
  const measure::Known known(subject, std::ref(bar));
  return measure::as_set({measure::to_json(subject, output, measure::measure(known, output))});
}

/// One recording of a set at one frame length.
struct Job {
  const sets::Entry *entry;
  int frame_ms;
};

Json measure_job(sets::Reader &reader, const Job &job, const Options &options, const std::string &out) {
  const measure::Subject subject = reader.read(*job.entry);
  const measure::Output output =
      out.empty() ? run_library(subject, setup_for(options.para, subject.rate, job.frame_ms))
                  : measure::read_output(subject, output_path(out, job.entry->name), options.out_delay);
  Json result = measure::to_json(subject, output, measure::measure(subject, output));
  if (!job.entry->tags.empty())
    result["tags"] = job.entry->tags;
  return result;
}

/// In processes of their own: a recording that ends one must not end the others.
/// @param out  folder of outputs that were made elsewhere; empty: the library runs, at every frame length
Json measure_set(const Options &options, const std::string &out) {
  for (const std::string &para : options.para)
    warn_about(para);
  const std::vector<sets::Entry> entries = sets::checked(options.recordings.set);
  std::vector<Job> jobs;
  for (const sets::Entry &entry : entries)
    for (const int ms : out.empty() ? options.frame_ms : std::vector<int>{0})
      jobs.push_back({&entry, ms});
  sets::Reader reader;
  WorkerPool pool(options.workers.parallel, [&](std::string_view order) {
    return measure_job(reader, jobs[std::stoul(std::string(order))], options, out).dump();
  });
  std::vector<Reply> replies(jobs.size());
  Progress bar("measuring");
  size_t done = 0;
  pool.run(
      jobs.size(), [](size_t i) { return std::to_string(i); },
      [&](size_t i, const Reply &reply) {
        replies[i] = reply;
        bar(++done, jobs.size());
      });
  Json set = measure::as_set({});
  for (size_t i = 0; i < jobs.size(); ++i)
    if (replies[i].fine)
      set["recordings"].push_back(Json::parse(replies[i].text));
    else
      set["failed"].push_back({{"name", jobs[i].entry->name}, {"message", replies[i].text}});
  return set;
}

std::vector<Setup> setups_of(const Options &options, const std::vector<sets::Entry> &set) {
  std::vector<Setup> setups;
  for (const int rate : served_rates)
    if (std::ranges::find(set, rate, &sets::Entry::rate) != set.end())
      for (const int ms : options.frame_ms)
        setups.push_back(setup_for(options.para, rate, ms));
  return setups;
}

void measure_fleet(const Options &options) {
  const fleet::Lock lock(options.run);
  const std::vector<sets::Entry> set = sets::checked(options.recordings.set);
  const double shard_seconds = fleet::shard_seconds(options.workers, fleet::cost_of(set, options.frame_ms.size()));
  const fleet::Run run = fleet::take_up(options.run, set, setups_of(options, set), shard_seconds);
  if (options.again)
    fmt::print(stderr, "{}: {} failed results to measure again\n", run.folder, fleet::set_aside_failed(run));
  fmt::print(stderr, "{}: {} of {} shards to measure\n", run.folder, fleet::missing(run).size(), run.shard_count());
  if (options.workers.on != fleet::Engine::slurm)
    say_when_terminated(fmt::format("\nqvvoice: stopped; the same command goes on in {}\n", options.run));
  if (!fleet::measure_missing(run, options.workers)) {
    fmt::print("{}/commands\n", run.folder);
    fmt::print(stderr, "run its lines anywhere; then the same command brings the results together\n");
    return;
  }
  fleet::Means means;
  const std::filesystem::path folder = std::filesystem::weakly_canonical(options.run);
  fleet::Database database(options.database.empty() ? (folder.parent_path() / "fleet.db").string() : options.database,
                           true);
  database.begin(run, folder.filename().string());
  const fleet::Merged merged = fleet::merge(run, [&](const Json &result) {
    means.add(result);
    database.add(result);
  });
  database.finish();
  fmt::print("{}", options.json ? fleet::as_json(merged, means).dump(2) + "\n" : fleet::as_text(merged, means));
  if (!merged.failed.empty())
    throw InputError("{} of {} recordings failed; they are named above", merged.failed.size(),
                     merged.failed.size() + merged.results);
}

Json measure_all(const Options &options, const std::string &out) {
  return options.recordings.set.empty() ? measure_one(options, out) : measure_set(options, out);
}

std::vector<measure::Column> columns_of(const Options &options) {
  std::vector<measure::Column> columns;
  for (const std::string &key : options.columns) {
    const auto found = std::ranges::find(measure::measures(), key, &measure::Measure::key);
    if (found == measure::measures().end())
      throw InputError("--columns: {} is no measure; --list lists them", key);
    columns.push_back({&*found, key});
  }
  return columns.empty() ? measure::usual_columns() : columns;
}

/// Every recording has what is read of it. @throws InputError with the place, what was found and what would be right
void check_results(const std::string &path, const Json &results) {
  const auto require = [&](bool right, const std::string &place, const Json &found, const char *needed) {
    if (!right)
      throw InputError("{}: {}: found {}; {} is needed, as qvvoice measure --json prints it", path, place,
                       found.is_null() ? "nothing" : found.type_name(), needed);
  };
  require(results.is_object(), "top", results, "an object");
  const Json recordings = results.value("recordings", Json()), failed = results.value("failed", Json::array());
  require(recordings.is_array(), "recordings", recordings, "an array");
  require(failed.is_array(), "failed", failed, "an array");
  for (const Json &one : failed)
    require(one.is_object() && one.value("name", Json()).is_string() && one.value("message", Json()).is_string(),
            "failed", one, "a list of {\"name\": text, \"message\": text}");
  for (size_t i = 0; i < recordings.size(); ++i) {
    const std::string place = fmt::format("recordings[{}]", i);
    require(recordings[i].is_object(), place, recordings[i], "an object");
    const auto at = [&](const char *key) { return recordings[i].value(key, Json()); };
    require(at("name").is_string(), place + ".name", at("name"), "a string");
    require(at("source").is_string(), place + ".source", at("source"), "a string");
    require(at("measures").is_object(), place + ".measures", at("measures"), "an object");
    require(recordings[i].contains("frame_ms") && (at("frame_ms").is_null() || at("frame_ms").is_number()),
            place + ".frame_ms", at("frame_ms"), "a number or null");
  }
}

Json read_results(const std::string &path) try {
  std::ifstream file(path);
  Json results = Json::parse(file);
  check_results(path, results);
  return results;
} catch (const Json::exception &error) {
  throw InputError("{}: cannot be read as JSON: {}", path, error.what());
}

void run(const Options &options) {
  const std::vector<measure::Column> columns = columns_of(options);
  Json results = measure_all(options, options.out);
  if (!options.against.empty()) {
    const Json other =
        options.against.ends_with(".json") ? read_results(options.against) : measure_all(options, options.against);
    for (const Json &failed : other.value("failed", Json::array()))
      fmt::print(stderr, "qvvoice: against {}: {}\n", std::string(failed["name"]), std::string(failed["message"]));
    for (const std::string &name : measure::compare(results, other))
      fmt::print(stderr, "qvvoice: {}: {} has no results to compare with\n", name, options.against);
  }
  if (!options.recordings.set.empty())
    results["means"] = measure::means(results["recordings"]);
  if (options.json)
    fmt::print("{}\n", results.dump(2, ' ', false, Json::error_handler_t::replace));
  else
    fmt::print("{}", options.csv ? measure::as_csv(results) : measure::as_text(results, columns));
  if (!results["failed"].empty())
    throw InputError("{} of {} recordings failed; they are named above", results["failed"].size(),
                     results["failed"].size() + results["recordings"].size());
}

void add_fleet(CLI::App &verb, Options &options) {
  CLI::Option *run =
      verb.add_option("--run", options.run,
                      "Folder that keeps a set's results, shard by shard: the same command goes on where "
                      "it ended, and nothing is measured twice (docs/fleet.md)")
          ->type_name("DIR")
          ->needs("--set")
          ->excludes("--out")
          ->excludes("--against");
  verb.add_option("--db", options.database,
                  "SQLite file that gets the results, for qvvoice compare (fleet.db beside the folder)")
      ->type_name("FILE")
      ->needs(run);
  verb.add_flag("--again", options.again, "Measure once more what has failed in the run; other results stay")
      ->needs(run);
  add_workers(
      verb, options.workers, run,
      {{"local", fleet::Engine::local}, {"commands", fleet::Engine::commands}, {"slurm", fleet::Engine::slurm}});
}

} // namespace

void add_measure(CLI::App &app) {
  const auto options = std::make_shared<Options>();
  CLI::App *verb = app.add_subcommand("measure", "Measures echo, talkers, noise, delay and speed on recordings");
  verb->footer(examples);
  add_recordings(*verb, options->recordings, true);
  CLI::Option *set = verb->get_option("--set");
  verb->add_flag("--list", options->list, "List the measures");
  CLI::Option *out = verb->add_option("-o,--out", options->out,
                                      "Measure this output instead of running the library; with --set a folder of "
                                      "NAME.wav or NAME/out.wav")
                         ->type_name("FILE");
  verb->add_option("--out-delay", options->out_delay, "Samples by which such outputs are behind the microphone (0)");
  add_parameters(
      *verb, options->para,
      fmt::format("Parameters ({}); of several those for the recording's rate are taken", para::default_family))
      ->excludes(out);
  verb->add_option("--frame-ms", options->frame_ms, "Frame length, ms (20); a set takes both")
      ->check(CLI::IsMember(served_frame_ms));
  verb->add_option("--against", options->against, "Another run beside it: its --json, or an output as with --out")
      ->type_name("PATH");
  add_fleet(*verb, *options);
  verb->get_option("-j")->needs(set);
  verb->add_option("--columns", options->columns,
                   "Measures that the table of a set shows (those with a column in --list)")
      ->delimiter(',')
      ->type_name("KEY,...")
      ->needs(set);
  CLI::Option *json = verb->add_flag("--json", options->json, "Print JSON");
  verb->add_flag("--csv", options->csv, "Print CSV")->excludes(json);
  verb->callback([options] {
    if (options->list) {
      fmt::print("{}", measure::measure_list());
      return;
    }
    options->recordings.check();
    if (options->recordings.set.empty() && options->frame_ms.size() > 1)
      throw InputError("--frame-ms: found {} lengths; one recording takes one, 16 or 20", options->frame_ms.size());
    options->run.empty() ? run(*options) : measure_fleet(*options);
  });
}

} // namespace qv::tool
