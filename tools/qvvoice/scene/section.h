/// @file section.h  One table of a TOML file, read key by key; whatever is wrong is said with its line.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <toml++/toml.h>

#include "support/error.h"

namespace qv::tool::scene {

/// @throws InputError when the file cannot be read or is empty
std::string read_text(const std::string &path);

/// @param path  for messages
/// @throws InputError when the text is not TOML
toml::table parse_toml(std::string_view text, const std::string &path);

struct Range {
  double least, greatest;
  const char *unit;
};

/// Every read_ function throws InputError naming file, line, key, what was found and what would be right. A key
/// without a default is required.
class Section {
public:
  /// @param name  as in the file, "echo"; empty for the top
  Section(const std::string &file, std::string name, const toml::table &table);

  bool has(const char *key); ///< and knows the key from then on
  double number(const char *key, const Range &range);
  double number(const char *key, const Range &range, double preset) { return has(key) ? number(key, range) : preset; }
  std::optional<double> optional_number(const char *key, const Range &range);
  std::string text(const char *key, const std::string &preset);
  std::string choice(const char *key, const std::vector<std::string> &choices, const std::string &preset);
  std::vector<double> numbers(const char *key, size_t count, const Range &range);             ///< exactly `count`
  std::vector<std::string> texts(const char *key);                                            ///< at least one
  std::vector<std::string> choices(const char *key, const std::vector<std::string> &choices); ///< likewise
  std::vector<std::vector<double>> rows(const char *key, size_t width, const Range &range);   ///< none when missing
  Section section(const char *key);                                                           ///< empty when missing
  std::vector<Section> sections(const char *key); ///< array of tables; none when missing

  /// Refuses keys that nobody has read. Call it last.
  void done() const;

  [[noreturn]] void refuse(const char *key, const std::string &found, const std::string &right) const;

private:
  const toml::node &node(const char *key, const std::string &right);
  double number_of(const toml::node &node, const char *key, const Range &range) const;
  std::vector<double> numbers_of(const toml::node &node, const char *key, size_t count, const Range &range) const;
  std::string path(const std::string &key) const { return name_.empty() ? key : name_ + "." + key; }

  const std::string &file_;
  std::string name_;
  const toml::table &table_;
  std::set<std::string, std::less<>> known_;
};

} // namespace qv::tool::scene
