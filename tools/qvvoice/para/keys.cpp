#include "para/keys.h"

#include <algorithm>
#include <numeric>

#include <fmt/format.h>

#include "para/words.h"

namespace qv::tool::para {

namespace {

/// Edits (insert, delete, replace) that turn one word into the other: Levenshtein's distance.
size_t edit_distance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < a.size(); ++i) {
    size_t diagonal = row[0]++;
    for (size_t j = 0; j < b.size(); ++j) {
      const size_t replaced = diagonal + (a[i] != b[j]);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

std::string_view last_part(std::string_view path) { return path.substr(path.rfind('.') + 1); }

std::vector<std::string> text_key_paths() {
  std::vector<std::string> paths;
  for (const TextKey &key : text_keys) {
    if (key.section.empty())
      paths.emplace_back(key.key);
    else
      for (const char *path : {"tx", "rx"})
        paths.push_back(fmt::format("{}.{}.{}", path, key.section, key.key));
  }
  return paths;
}

std::vector<std::string> known_paths() {
  std::vector<std::string> paths = text_key_paths();
  for (const auto &section : config::sections)
    paths.emplace_back(section.name);
  for (const Field &field : config::fields)
    paths.push_back(path_of(field));
  paths.emplace_back(raw_section);
  return paths;
}

} // namespace

bool is_section(std::string_view path) {
  return std::any_of(config::sections.begin(), config::sections.end(), [&](const auto &section) {
    return section.name == path || section.name.starts_with(std::string(path) + '.');
  });
}

bool is_text_key(std::string_view path) {
  const auto paths = text_key_paths();
  return std::find(paths.begin(), paths.end(), path) != paths.end();
}

std::string nearest(std::string_view word, const std::vector<std::string> &known) {
  std::string best;
  size_t least = std::max<size_t>(2, word.size() / 3) + 1;
  for (const std::string &candidate : known)
    if (const size_t distance = edit_distance(word, candidate); distance < least) {
      least = distance;
      best = candidate;
    }
  return best;
}

std::string nearest_path(std::string_view path) {
  for (const Field &field : config::fields)
    if (last_part(path) == field.name)
      return path_of(field);
  auto paths = known_paths();
  std::vector<std::string> elsewhere;
  std::copy_if(paths.begin(), paths.end(), std::back_inserter(elsewhere),
               [&](const std::string &known) { return last_part(known) == last_part(path); });
  std::sort(elsewhere.begin(), elsewhere.end(), [&](const std::string &a, const std::string &b) {
    return edit_distance(a, path) < edit_distance(b, path);
  });
  return elsewhere.empty() ? nearest(path, paths) : elsewhere.front();
}

std::string did_you_mean(const std::string &name) {
  return name.empty() ? "" : fmt::format("; did you mean \"{}\"?", name);
}

} // namespace qv::tool::para
