#include "sets/set.h"

#include <filesystem>
#include <set>

#include "scene/render.h"
#include "scene/scene.h"
#include "sets/manifest.h"
#include "support/error.h"

namespace qv::tool::sets {
namespace {

namespace fs = std::filesystem;

std::vector<Entry> entries_in(const std::string &folder) {
  std::error_code error;
  std::set<fs::path> found;
  for (const auto &entry : fs::recursive_directory_iterator(folder, error)) {
    const std::string name = entry.path().filename().string();
    if (name == "scene.toml" || name == "mic.wav" || name == "ref.wav")
      found.insert(entry.path().parent_path());
  }
  if (error || found.empty())
    throw InputError("{}: holds no recordings; folders with mic.wav and ref.wav are needed, as qvvoice scene makes "
                     "them, or a manifest that names recordings",
                     folder);
  std::vector<Entry> entries;
  for (const fs::path &path : found)
    entries.push_back({path.lexically_relative(folder).string(), {}, measure::files_in(path.string()), path.string()});
  return entries;
}

void refuse(const std::string &path, const Faults &faults) {
  for (const std::string &fault : faults)
    fmt::print(stderr, "qvvoice: {}\n", fault);
  if (!faults.empty())
    throw InputError("{}: {} fault{}, named above; nothing was measured", path, faults.size(),
                     faults.size() == 1 ? "" : "s");
}

measure::Subject subject_of(const Entry &entry, const scene::Call &call) {
  return {entry.name, call.rate, call.mic, call.ref, to_signal(call.near), to_signal(call.echo),
          // as a scene.toml has it: what is made where it is used measures the same as what was stored
          scene::parse_truth(scene::truth_text(call.truth), entry.place), to_signal(call.noise)};
}

} // namespace

std::vector<Entry> entries(const std::string &path, Faults &faults) {
  return fs::exists(path) && !fs::is_directory(path) ? read_manifest(path, faults) : entries_in(path);
}

std::vector<Entry> listed(const std::string &path) {
  Faults faults;
  std::vector<Entry> found = entries(path, faults);
  refuse(path, faults);
  return found;
}

std::vector<Entry> checked(const std::string &path) {
  Faults faults;
  std::vector<Entry> found = entries(path, faults);
  check(found, faults);
  refuse(path, faults);
  return found;
}

measure::Subject Reader::read(const Entry &entry) {
  const auto *drawn = std::get_if<Drawn>(&entry.source);
  if (!drawn)
    return measure::read_files(entry.name, std::get<measure::RecordingFiles>(entry.source));
  const scene::Scene scene =
      scene::parse_scene(scene::draw_scene(drawn->seed, drawn->part, drawn->index, drawn->family), entry.name);
  scene::SpeechReader &speech = speech_.try_emplace(entry.rate, entry.rate).first->second;
  return subject_of(entry, scene::render(scene, speech, entry.rate));
}

} // namespace qv::tool::sets
