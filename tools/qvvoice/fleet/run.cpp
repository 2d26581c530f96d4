#include "fleet/run.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fleet/behaviour.h"
#include "qvvoice/qvvoice.h"
#include "support/checksum.h"
#include "support/error.h"
#include "support/output_file.h"

namespace qv::tool::fleet {
namespace {

namespace fs = std::filesystem;

Json parameters_json(const std::vector<Setup> &setups) {
  Json parameters = Json::array();
  for (const Setup &setup : setups)
    parameters.push_back(
        {{"rate", setup.rate}, {"frame_ms", frame_ms_of(setup)}, {"source", setup.para_source}, {"words", setup.para}});
  return parameters;
}

std::vector<Setup> setups_from(const Json &parameters) {
  std::vector<Setup> setups;
  for (const Json &one : parameters)
    setups.push_back(
        setup_of(one.at("words").get<config::Image>(), one.at("source"), one.at("rate"), one.at("frame_ms")));
  return setups;
}

Json library_json(const std::vector<Setup> &setups) {
  return {{"version", QV_VOICE_Version()}, {"behaviour", behaviour(setups)}};
}

std::string set_text(const std::vector<Entry> &set) {
  std::string text;
  for (const Entry &entry : set)
    text += sets::line_of(entry).dump() + "\n";
  return text;
}

/// About what a recording takes, in seconds of a core.
struct Cost {
  double read;   ///< or made, and what follows from it alone
  double result; ///< each
};

Cost cost_of(const Entry &entry) {
  // Per second of the recording on one 3 GHz core: core seconds of `qvvoice measure --run` with one frame length and
  // with two on stored scenes, and on scenes that are made first; between those of 8 and 16 kHz.
  constexpr double read = 0.003, made = 0.06, result = 0.003;
  return {entry.seconds * (std::holds_alternative<sets::Drawn>(entry.source) ? made : read), entry.seconds * result};
}

std::vector<size_t> cut(const std::vector<Entry> &set, size_t per_recording, double shard_seconds) {
  const size_t count = set.size() * per_recording;
  std::vector<size_t> shards = {0};
  double seconds = 0;
  for (size_t i = 0; i + 1 < count; ++i) {
    const Cost cost = cost_of(set[i / per_recording]);
    seconds += cost.result + (i % per_recording == 0 || i == shards.back() ? cost.read : 0);
    if (seconds >= shard_seconds) {
      shards.push_back(i + 1);
      seconds = 0;
    }
  }
  shards.push_back(count);
  return shards;
}

size_t count_per_rate(const std::vector<Setup> &setups) {
  return size_t(std::ranges::count(setups, setups.at(0).rate, &Setup::rate));
}

void write(const std::string &path, const std::string &text) {
  OutputFile file(path);
  file.write(text);
  file.commit();
}

std::string text_of(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  if (!file)
    throw InputError("{}: cannot be read; a folder that qvvoice measure --run has made is needed", path);
  return {std::istreambuf_iterator<char>(file), {}};
}

Run run_from(const std::string &folder, const std::string &text) try {
  const Json described = Json::parse(text);
  return {folder, checksum_of(text), setups_from(described.at("parameters")), described.at("shards")};
} catch (const Json::exception &error) {
  throw InputError("{}/run.json: is not as qvvoice measure --run writes it: {}", folder, error.what());
}

std::string described_path(const std::string &folder) { return folder + "/run.json"; }

/// @param place  of the value that differs: "library.version"
void refuse_other(const std::string &folder, const std::string &place, const Json &there, const Json &here) {
  const auto shortened = [](const Json &value) {
    const std::string text = value.dump();
    return text.size() > 60 ? text.substr(0, 60) + "..." : text;
  };
  throw InputError("{}: has results of another run: {} is {} there, {} here; results are never mixed: remove the "
                   "folder, or give another --run",
                   folder, place, shortened(there), shortened(here));
}

void require_same(const std::string &folder, const Json &there, const Json &here, const std::string &place = "") {
  if (here.is_object() && there.is_object()) {
    for (const auto &[key, value] : here.items())
      require_same(folder, there.value(key, Json()), value, place.empty() ? key : place + "." + key);
  } else if (there != here) {
    refuse_other(folder, place, there, here);
  }
}

} // namespace

std::string Run::shard_path(size_t shard) const { return fmt::format("{}/shards/{:06}.jsonl", folder, shard); }

size_t Run::per_recording() const { return count_per_rate(setups); }

const Setup &Run::setup(int rate, size_t nth) const {
  for (const Setup &setup : setups)
    if (setup.rate == rate && nth-- == 0)
      return setup;
  throw InputError("has {} Hz; the run has no parameters for it: the file has changed since the run began", rate);
}

int frame_ms_of(const Setup &setup) { return 1000 * setup.frame_len / setup.rate; }

double cost_of(const std::vector<Entry> &set, size_t results) {
  double seconds = 0;
  for (const Entry &entry : set)
    seconds += cost_of(entry).read + cost_of(entry).result * double(results);
  return seconds;
}

Run take_up(const std::string &folder, const std::vector<Entry> &set, const std::vector<Setup> &setups,
            double shard_seconds) {
  const std::string lines = set_text(set);
  Json described = {{"parameters", parameters_json(setups)}, // first: what the library does depends on them
                    {"library", library_json(setups)},
                    {"set", {{"recordings", set.size()}, {"checksum", checksum_of(lines)}}}};
  const std::string path = described_path(folder);
  if (fs::exists(path)) {
    const std::string text = text_of(path);
    require_same(folder, Json::parse(text, nullptr, false), described);
    return run_from(folder, text);
  }
  described["shards"] = cut(set, count_per_rate(setups), shard_seconds);
  fs::create_directories(folder + "/shards");
  write(folder + "/set.jsonl", lines);
  write(path, described.dump() + "\n");
  return run_from(folder, text_of(path));
}

Run open_run(const std::string &folder) {
  const std::string text = text_of(described_path(folder));
  Run run = run_from(folder, text);
  require_same(folder, Json::parse(text)["library"], library_json(run.setups), "library");
  return run;
}

std::vector<Entry> recordings_of(const Run &run, size_t shard) {
  const std::string path = run.folder + "/set.jsonl";
  const size_t begin = run.shards[shard] / run.per_recording();
  const size_t end = (run.shards[shard + 1] - 1) / run.per_recording() + 1;
  std::ifstream file(path);
  std::vector<Entry> entries;
  sets::Faults faults;
  size_t number = 0;
  for (std::string line; number < end && std::getline(file, line); ++number)
    if (number >= begin)
      if (const auto entry =
              sets::entry_of(Json::parse(line, nullptr, false), "/", fmt::format("{}:{}", path, number + 1), faults))
        entries.push_back(*entry);
  if (!faults.empty() || entries.size() != end - begin)
    throw InputError("{}: is not the set that the run began with{}", path, faults.empty() ? "" : ": " + faults[0]);
  return entries;
}

} // namespace qv::tool::fleet
