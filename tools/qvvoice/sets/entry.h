/// @file entry.h  One recording of a set, and how a line of a manifest describes it.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <nlohmann/json.hpp>

#include "measure/subject.h"
#include "scene/draw.h"

namespace qv::tool::sets {

using Json = nlohmann::ordered_json;

/// A scene that is drawn, and made where it is used.
struct Drawn {
  scene::Family family;
  scene::Part part;
  uint64_t seed;
  size_t index; ///< from 0
};

struct Entry {
  std::string name;                        ///< its own within a set
  std::map<std::string, std::string> tags; ///< such as device, firmware, room
  std::variant<measure::RecordingFiles, Drawn> source;
  std::string place;  ///< where it is named, for messages: "calls.csv:17"
  int rate = 0;       ///< Hz; of a recording known after check()
  double seconds = 0; ///< likewise
};

/// What is wrong with a set: place, what was found and what would be right.
using Faults = std::vector<std::string>;

/// One line, whether it was CSV or JSON. Its keys: name; mic, ref, near, echo, noise, scene (files), or folder (of
/// files with these names), or family, part, seed, index, rate (a drawn scene); tags, an object of texts.
/// @param base  folder that its paths are relative to
/// @return nothing when something is wrong; `faults` says what
std::optional<Entry> entry_of(const Json &line, const std::string &base, const std::string &place, Faults &faults);

/// The line that entry_of() takes for it, its paths absolute.
Json line_of(const Entry &entry);

/// A drawn scene by the name of its family, part, seed, index and rate, tagged with what makes it hard.
Entry drawn_entry(const Drawn &drawn, int rate);

} // namespace qv::tool::sets
