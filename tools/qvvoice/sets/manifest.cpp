#include "sets/manifest.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>

#include "support/error.h"

namespace qv::tool::sets {
namespace {

using Fields = std::vector<std::string>;

/// @return nothing when a quote is left open or stands inside a field that does not begin with one
std::optional<Fields> csv_fields(const std::string &line) {
  Fields fields = {""};
  bool quoted = false;
  for (size_t i = 0; i < line.size(); ++i) {
    std::string &field = fields.back();
    if (quoted && line[i] == '"' && i + 1 < line.size() && line[i + 1] == '"')
      field += line[i++];
    else if (quoted && line[i] == '"')
      quoted = false;
    else if (!quoted && line[i] == ',')
      fields.emplace_back();
    else if (!quoted && line[i] == '"') {
      if (!field.empty())
        return {};
      quoted = true;
    } else
      field += line[i];
  }
  return quoted ? std::nullopt : std::optional(fields);
}

const Fields numbers = {"seed", "index", "rate"};
const Fields texts = {"name", "folder", "mic", "ref", "near", "echo", "noise", "scene", "family", "part"};

bool among(const Fields &names, const std::string &name) { return std::ranges::find(names, name) != names.end(); }

/// A whole number where it is one, else the text, which entry_of() refuses.
Json number_or_text(const std::string &text) {
  const Json number = Json::parse(text, nullptr, false);
  return number.is_number_unsigned() ? number : Json(text);
}

/// The object that a JSON line would be.
Json object_of(const Fields &columns, const Fields &fields) {
  Json object = Json::object();
  for (size_t i = 0; i < columns.size(); ++i) {
    if (fields[i].empty())
      continue;
    if (among(numbers, columns[i]))
      object[columns[i]] = number_or_text(fields[i]);
    else if (among(texts, columns[i]))
      object[columns[i]] = fields[i];
    else
      object["tags"][columns[i]] = fields[i];
  }
  return object;
}

Fields read_columns(const std::string &line, const std::string &path) {
  const auto columns = csv_fields(line);
  if (!columns || std::ranges::none_of(*columns, [](const std::string &one) {
        return one == "mic" || one == "folder" || one == "family";
      }))
    throw InputError("{}:1: found \"{}\"; CSV begins with the names of its columns, among them mic and ref, or folder, "
                     "or family, part, seed, index and rate; JSON lines begin with {{",
                     path, line.substr(0, 80));
  for (size_t i = 0; i < columns->size(); ++i)
    if (std::count(columns->begin(), columns->end(), (*columns)[i]) > 1 || (*columns)[i].empty())
      throw InputError("{}:1: column {}: \"{}\": every column needs a name of its own", path, i + 1, (*columns)[i]);
  return *columns;
}

} // namespace

std::vector<Entry> read_manifest(const std::string &path, Faults &faults) {
  std::ifstream file(path);
  if (!file)
    throw InputError("{}: cannot be read; a folder of recordings or a manifest is needed", path);
  const std::string base = std::filesystem::absolute(path).parent_path().string();
  std::vector<Entry> entries;
  std::optional<Fields> columns;
  bool json = false;
  size_t count = 0, number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    if (number == 1 && line.starts_with("\xEF\xBB\xBF"))
      line.erase(0, 3); // the mark that some spreadsheets begin with
    if (line.ends_with('\r'))
      line.pop_back();
    if (line.find_first_not_of(" \t") == line.npos)
      continue;
    if (number == 1 && !(json = line[0] == '{')) {
      columns = read_columns(line, path);
      continue;
    }
    ++count;
    const std::string place = fmt::format("{}:{}", path, number);
    Json object;
    if (json) {
      object = Json::parse(line, nullptr, false);
      if (object.is_discarded()) {
        faults.push_back(place + ": is not JSON; a whole object is needed in every line");
        continue;
      }
    } else {
      const auto fields = csv_fields(line);
      if (!fields || fields->size() != columns->size()) {
        faults.push_back(fields ? fmt::format("{}: found {} fields; {} are needed, as in the first line", place,
                                              fields->size(), columns->size())
                                : place + ": a quote is left open or stands inside a field");
        continue;
      }
      object = object_of(*columns, *fields);
    }
    if (const auto entry = entry_of(object, base, place, faults))
      entries.push_back(*entry);
  }
  if (count == 0)
    throw InputError("{}: names no recording", path);
  return entries;
}

} // namespace qv::tool::sets
