#include "sets/entry.h"

#include <algorithm>
#include <array>
#include <filesystem>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "dsp/layout.h"
#include "para/keys.h"
#include "scene/scene.h"

namespace qv::tool::sets {
namespace {

namespace fs = std::filesystem;
using measure::RecordingFiles;

constexpr std::pair<const char *, std::string RecordingFiles::*> files[] = {
    {"mic", &RecordingFiles::mic},   {"ref", &RecordingFiles::ref},     {"near", &RecordingFiles::near},
    {"echo", &RecordingFiles::echo}, {"noise", &RecordingFiles::noise}, {"scene", &RecordingFiles::scene}};

const std::vector<std::string> known_keys = {"name",  "tags",  "folder", "mic",  "ref",  "near",  "echo",
                                             "noise", "scene", "family", "part", "seed", "index", "rate"};

constexpr const char *kinds = "a recording is named by mic and ref, by folder, or as a drawn scene by family, part, "
                              "seed, index and rate";

/// One line that is being read. Every function notes what is wrong and goes on.
class Line {
public:
  Line(const Json &fields, const std::string &base, const std::string &place, Faults &faults)
      : fields_(fields), base_(base), place_(place), faults_(faults), before_(faults.size()) {}

  bool fine() const { return faults_.size() == before_; }
  bool has(const char *key) const { return fields_.contains(key) && !fields_[key].is_null(); }

  template <class... Args> void fault(fmt::format_string<Args...> format, Args &&...args) {
    faults_.push_back(fmt::format("{}: {}", place_, fmt::format(format, std::forward<Args>(args)...)));
  }

  std::string text(const char *key) {
    if (!has(key))
      return "";
    const Json &value = fields_[key];
    if (!value.is_string() || value.get<std::string>().empty()) {
      fault("{}: found {}; a text is needed", key, value.dump());
      return "";
    }
    return value;
  }

  std::string path(const char *key) {
    const std::string given = text(key);
    return given.empty() ? "" : (fs::path(base_) / given).lexically_normal().string();
  }

  uint64_t number(const char *key) {
    if (has(key) && fields_[key].is_number_unsigned())
      return fields_[key];
    fault("{}: found {}; a whole number from 0 is needed", key, has(key) ? fields_[key].dump() : "nothing");
    return 0;
  }

  template <class Kind> Kind choice(const char *key, const std::map<std::string, Kind> &choices) {
    const auto found = choices.find(text(key));
    if (found != choices.end())
      return found->second;
    std::vector<std::string> names;
    for (const auto &[name, kind] : choices)
      names.push_back(name);
    fault("{}: found {}; {} is needed", key, has(key) ? fields_[key].dump() : "nothing", fmt::join(names, " or "));
    return {};
  }

  std::map<std::string, std::string> tags() {
    std::map<std::string, std::string> tags;
    const Json given = has("tags") ? fields_["tags"] : Json::object();
    if (!given.is_object())
      fault("tags: found {}; {{\"device\": \"a\", ...}} is needed", given.dump());
    else
      for (const auto &[key, value] : given.items())
        if (value.is_string())
          tags[key] = value;
        else
          fault("tags.{}: found {}; a text is needed", key, value.dump());
    return tags;
  }

  void check_keys() {
    for (const auto &[key, value] : fields_.items())
      if (std::ranges::find(known_keys, key) == known_keys.end())
        fault("{}: is no key of a recording{}; what describes it goes into tags", key,
              para::did_you_mean(para::nearest(key, known_keys)));
  }

private:
  const Json &fields_;
  const std::string &base_, &place_;
  Faults &faults_;
  const size_t before_;
};

Drawn read_drawn(Line &line) {
  return {line.choice("family", scene::families()), line.choice("part", scene::parts()), line.number("seed"),
          line.number("index")};
}

RecordingFiles read_files(Line &line) {
  RecordingFiles found;
  for (const auto &[key, file] : files)
    found.*file = line.path(key);
  if (line.fine() && (found.mic.empty() || found.ref.empty()))
    line.fault("{}: found nothing; both mic and ref are needed", found.mic.empty() ? "mic" : "ref");
  return found;
}

/// The folder of a file called mic, or the file without its ending. @param path  as the manifest has it
std::string name_of_mic(const fs::path &path) {
  return (path.stem() == "mic" && path.has_parent_path() ? path.parent_path() : path.parent_path() / path.stem())
      .string();
}

std::string name_of(const Drawn &drawn, int rate) {
  return fmt::format("{}-{}-{}-{:05}-{}k", scene::name_of(drawn.family), scene::name_of(drawn.part), drawn.seed,
                     drawn.index, rate / 1000);
}

std::string loudspeaker_of(const scene::Echo &echo) {
  return echo.driver                              ? "driver"
         : !echo.saturation                       ? "linear"
         : echo.clipping == scene::Clipping::soft ? "soft"
                                                  : "hard";
}

} // namespace

std::optional<Entry> entry_of(const Json &fields, const std::string &base, const std::string &place, Faults &faults) {
  Line line(fields, base, place, faults);
  if (!fields.is_object()) {
    line.fault("found {}; an object is needed: {}", fields.type_name(), kinds);
    return {};
  }
  line.check_keys();
  Entry entry{line.text("name"), line.tags(), {}, place};
  const bool by_files = line.has("mic") || line.has("ref"), by_folder = line.has("folder");
  const bool by_draw = line.has("family") || line.has("index");
  if (by_files + by_folder + by_draw != 1) {
    line.fault("found {}; {}", by_files || by_folder || by_draw ? "more than one recording" : "no recording", kinds);
  } else if (by_draw) {
    const Drawn drawn = read_drawn(line);
    entry.source = drawn;
    entry.rate = int(line.number("rate"));
    if (line.fine() && !rate_served(entry.rate))
      line.fault("rate: found {}; 8000 or 16000 is needed", entry.rate);
    if (line.fine() && entry.name.empty())
      entry.name = name_of(drawn, entry.rate);
  } else if (by_folder) {
    entry.source = measure::files_in(line.path("folder"));
    if (entry.name.empty())
      entry.name = line.text("folder");
  } else {
    entry.source = read_files(line);
    if (entry.name.empty())
      entry.name = name_of_mic(line.text("mic"));
  }
  return line.fine() ? std::optional(entry) : std::nullopt;
}

Json line_of(const Entry &entry) {
  Json line = {{"name", entry.name}};
  if (const auto *drawn = std::get_if<Drawn>(&entry.source)) {
    line["family"] = scene::name_of(drawn->family);
    line["part"] = scene::name_of(drawn->part);
    line["seed"] = drawn->seed;
    line["index"] = drawn->index;
    line["rate"] = entry.rate;
  } else {
    for (const auto &[key, file] : files)
      if (const std::string &path = std::get<RecordingFiles>(entry.source).*file; !path.empty())
        line[key] = fs::absolute(path).lexically_normal().string();
  }
  if (!entry.tags.empty())
    line["tags"] = entry.tags;
  return line;
}

Entry drawn_entry(const Drawn &drawn, int rate) {
  const scene::Scene scene =
      scene::parse_scene(scene::draw_scene(drawn.seed, drawn.part, drawn.index, drawn.family), "drawn scene");
  constexpr const char *noises[] = {"none", "white", "pink", "babble", "file"};
  const bool music = scene.far.sound == scene::Sound::music;
  return {name_of(drawn, rate),
          {{"far", music ? "music" : "speech"},
           {"noise", noises[size_t(scene.noise.kind)]},
           {"loudspeaker", loudspeaker_of(scene.echo)},
           {"clocks", scene.echo.drift != 0 ? "apart" : "equal"},
           {"changes", std::to_string(scene.echo.changes.size())},
           {"streams", scene.faults.empty() ? "whole" : "broken"}},
          drawn,
          "",
          rate,
          scene.duration};
}

} // namespace qv::tool::sets
