#include "scene/section.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace qv::tool::scene {
namespace {

std::string shown(const toml::node &node) {
  std::ostringstream text;
  node.visit([&](const auto &value) { text << value; });
  std::string line = text.str();
  if (line.size() > 60)
    line = line.substr(0, 57) + "...";
  return line;
}

std::string described(const Range &range) {
  return fmt::format("a number from {} to {}{}{}", range.least, range.greatest, *range.unit ? " " : "", range.unit);
}

} // namespace

std::string read_text(const std::string &path) {
  std::ifstream file(path);
  if (!file)
    throw InputError("{}: cannot be read: {}", path, std::strerror(errno));
  std::string text{std::istreambuf_iterator<char>(file), {}};
  if (text.empty())
    throw InputError("{}: is empty, or a folder; a TOML file is needed", path);
  return text;
}

toml::table parse_toml(std::string_view text, const std::string &path) {
  toml::parse_result parsed = toml::parse(text, path);
  if (!parsed)
    throw InputError("{}:{}: {}", path, parsed.error().source().begin.line, parsed.error().description());
  return std::move(parsed).table();
}

Section::Section(const std::string &file, std::string name, const toml::table &table)
    : file_(file), name_(std::move(name)), table_(table) {}

void Section::refuse(const char *key, const std::string &found, const std::string &right) const {
  const toml::node *node = table_.get(key);
  const auto line = (node ? node->source() : table_.source()).begin.line;
  throw InputError("{}:{}: {}: found {}; {} is needed", file_, line, path(key), found, right);
}

const toml::node &Section::node(const char *key, const std::string &right) {
  known_.insert(key);
  const toml::node *node = table_.get(key);
  if (!node)
    refuse(key, "nothing", right);
  return *node;
}

double Section::number_of(const toml::node &node, const char *key, const Range &range) const {
  const auto value = node.value<double>();
  if (!node.is_number() || !value || !(*value >= range.least && *value <= range.greatest))
    refuse(key, shown(node), described(range));
  return *value;
}

std::vector<double> Section::numbers_of(const toml::node &node, const char *key, size_t count,
                                        const Range &range) const {
  const toml::array *list = node.as_array();
  if (!list || list->size() != count)
    refuse(key, shown(node), fmt::format("a list of {} numbers", count));
  std::vector<double> values;
  for (const toml::node &element : *list)
    values.push_back(number_of(element, key, range));
  return values;
}

bool Section::has(const char *key) {
  known_.insert(key);
  return table_.contains(key);
}

double Section::number(const char *key, const Range &range) {
  return number_of(node(key, described(range)), key, range);
}

std::optional<double> Section::optional_number(const char *key, const Range &range) {
  return has(key) ? std::optional(number(key, range)) : std::nullopt;
}

std::string Section::text(const char *key, const std::string &preset) {
  if (!has(key))
    return preset;
  const toml::node &value = node(key, "");
  if (!value.is_string())
    refuse(key, shown(value), "text in quotes");
  return *value.value<std::string>();
}

std::string Section::choice(const char *key, const std::vector<std::string> &choices, const std::string &preset) {
  const std::string chosen = text(key, preset);
  if (std::ranges::find(choices, chosen) == choices.end())
    refuse(key, '"' + chosen + '"', fmt::format("one of {}", fmt::join(choices, ", ")));
  return chosen;
}

std::vector<double> Section::numbers(const char *key, size_t count, const Range &range) {
  return numbers_of(node(key, fmt::format("a list of {} numbers", count)), key, count, range);
}

std::vector<std::string> Section::texts(const char *key) {
  const toml::node &value = node(key, "a list of texts");
  const toml::array *list = value.as_array();
  if (!list || list->empty() || !list->is_homogeneous(toml::node_type::string))
    refuse(key, shown(value), "a list of texts");
  std::vector<std::string> texts;
  for (const toml::node &element : *list)
    texts.push_back(*element.value<std::string>());
  return texts;
}

std::vector<std::string> Section::choices(const char *key, const std::vector<std::string> &choices) {
  const std::vector<std::string> chosen = texts(key);
  for (const std::string &one : chosen)
    if (std::ranges::find(choices, one) == choices.end())
      refuse(key, '"' + one + '"', fmt::format("each one of {}", fmt::join(choices, ", ")));
  return chosen;
}

std::vector<std::vector<double>> Section::rows(const char *key, size_t width, const Range &range) {
  std::vector<std::vector<double>> rows;
  if (!has(key))
    return rows;
  const toml::array *list = table_.get(key)->as_array();
  if (!list)
    refuse(key, shown(*table_.get(key)), fmt::format("a list of lists of {} numbers", width));
  for (const toml::node &row : *list)
    rows.push_back(numbers_of(row, key, width, range));
  return rows;
}

Section Section::section(const char *key) {
  static const toml::table none;
  known_.insert(key);
  const toml::node *value = table_.get(key);
  if (value && !value->is_table())
    refuse(key, shown(*value), "a table");
  return {file_, path(key), value ? *value->as_table() : none};
}

std::vector<Section> Section::sections(const char *key) {
  std::vector<Section> parts;
  known_.insert(key);
  const toml::node *value = table_.get(key);
  if (!value)
    return parts;
  const toml::array *list = value->as_array();
  if (!list || (!list->empty() && !list->is_homogeneous(toml::node_type::table)))
    refuse(key, shown(*value), "a list of tables");
  for (const toml::node &element : *list)
    parts.emplace_back(file_, path(key), *element.as_table());
  return parts;
}

void Section::done() const {
  for (const auto &[key, value] : table_)
    if (!known_.contains(key.str()))
      throw InputError("{}:{}: {}: unknown key; known here: {}", file_, key.source().begin.line,
                       path(std::string(key.str())), fmt::join(known_, ", "));
}

} // namespace qv::tool::scene
