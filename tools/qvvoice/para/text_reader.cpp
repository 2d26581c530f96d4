#include "para/text_reader.h"

#include <fmt/format.h>
#include <toml++/toml.h>

#include "para/equaliser_source.h"
#include "para/keys.h"
#include "para/text_header.h"
#include "para/toml_values.h"

namespace qv::tool::para {

namespace {

std::string joined(std::string_view path, std::string_view key) {
  return path.empty() ? std::string(key) : fmt::format("{}.{}", path, key);
}

void note_lines(const toml::table &table, std::string_view path, FindingLog &log) {
  for (const auto &[key, node] : table) {
    const std::string full = joined(path, key.str());
    log.note_line(full, int(key.source().begin.line));
    if (const toml::table *inner = node.as_table())
      note_lines(*inner, full, log);
  }
}

/// Reads the sections of a text into an image that holds base or defaults.
class SectionReader {
public:
  SectionReader(Image &image, FindingLog &log) : image_(image), log_(log), rate_(image[config::rate_word]) {}

  /// A switch first: the values beside it may be taken only while it is on.
  void read_table(const toml::table &table, const std::string &path) {
    for (const bool switches : {true, false})
      for (const auto &[key, node] : table)
        if ((key == "enable") == switches)
          read_entry(joined(path, key.str()), node);
  }

  void read_equaliser(const toml::table &section, const std::string &path, const std::filesystem::path &folder) {
    const Field &half_taps = *find_field(path + ".half_taps");
    if (const auto source = equaliser_source(section, path, folder, rate_, log_)) {
      for (int32_t i = 0; i < EQ_MAX_HALF_TAPS; ++i)
        store(*find_field(path + ".coef"), i, size_t(i) < source->half.size() ? source->half[size_t(i)] : 0);
      store(half_taps, 0, double(source->half.size()));
      if (!source->warning.empty())
        log_.warning(joined(path, source->key), source->warning);
    } else if (const toml::array *coef = section["coef"].as_array(); coef && !section.contains("half_taps")) {
      store(half_taps, 0, double(coef->size()));
    }
  }

private:
  void read_entry(const std::string &full, const toml::node &node) {
    if (const Field *field = find_field(full))
      read_field(*field, node);
    else if ((is_section(full) || full == raw_section) && !node.is_table())
      log_.error(full, fmt::format("{}; this is a section: write [{}]", found(node), full));
    else if (full == raw_section)
      read_raw(*node.as_table());
    else if (is_section(full))
      read_table(*node.as_table(), full);
    else if (!is_text_key(full))
      log_.error(full, (node.is_table() ? "no such section" : "no such key") + did_you_mean(nearest_path(full)));
  }

  void read_field(const Field &field, const toml::node &node) {
    if (field.extent == config::Extent::scalar)
      return read_element(field, 0, node);
    const auto most = size_t(field.count(rate_));
    const bool whole = field.extent == config::Extent::groups;
    const toml::array *array = node.as_array();
    if (array == nullptr || array->size() > most || (whole && array->size() < most))
      return log_.error(path_of(field), fmt::format("{}; right would be an array of {}{} values", found(node),
                                                    whole ? "" : "up to ", most));
    for (size_t i = 0; i < most; ++i)
      if (i < array->size())
        read_element(field, int32_t(i), *array->get(i));
      else
        store(field, int32_t(i), 0);
  }

  void read_element(const Field &field, int32_t element, const toml::node &node) {
    const std::optional<double> value = number(field, node, rate_);
    if (!value)
      return log_.error(path_of(field), fmt::format("{}; right would be {}", found(node), right_type(field)));
    const double unit = config::unit_of(field.encoding), word_value = *value / unit;
    if (!(word_value >= INT16_MIN - 0.5 && word_value < INT16_MAX + 0.5))
      return log_.error(path_of(field),
                        fmt::format("{} does not fit into the file; right would be {} .. {}", found(node),
                                    shortest(field, INT16_MIN * unit), shortest(field, INT16_MAX * unit)));
    store(field, element, *value);
    const double taken = config::value_of(field, image_, element);
    const std::string stored = shortest(field, taken);
    if (*value == taken || *value == std::stod(stored))
      return;
    if (field.encoding == config::Encoding::mark || config::owns_words(field, image_))
      log_.warning(path_of(field),
                   fmt::format("{} is stored as {}: the file holds steps of {}", found(node), stored, plain(unit, 7)));
    else
      log_.warning(path_of(field), fmt::format("{} is not stored, and has no effect, without {}.enable = true",
                                               found(node), field.section));
  }

  void store(const Field &field, int32_t element, double value) { config::set_value(field, image_, element, value); }

  void read_raw(const toml::table &words) {
    const std::vector<bool> read = words_read(image_);
    for (const auto &[key, node] : words) {
      const std::string path = joined(raw_section, key.str());
      const int word = word_number(std::string(key.str()));
      const auto value = node.value_exact<int64_t>();
      if (word < 0)
        log_.error(path, fmt::format("no such word; right would be 0 .. {}", config::word_count - 1));
      else if (read[size_t(word)] && word != config::magic_word)
        log_.error(path, "this word has a key of its own: " + owner_of(word, rate_));
      else if (!value || *value != int16_t(*value))
        log_.error(path, fmt::format("{}; right would be a whole number, -32768 .. 32767", found(node)));
      else if (word == config::rate_word && rate_served(*value))
        log_.error(path, "right would be the key rate, before the first section");
      else
        image_[size_t(word)] = int16_t(*value);
    }
  }

  Image &image_;
  FindingLog &log_;
  int32_t rate_; ///< as the header left it
};

} // namespace

ReadText read_text(std::string_view text, const std::filesystem::path &folder) {
  ReadText result;
  const toml::parse_result root = toml::parse(text);
  if (!root) {
    result.log.note_line("", int(root.error().source().begin.line));
    result.log.error("", "not TOML: " + std::string(root.error().description()));
    return result;
  }
  note_lines(root.table(), "", result.log);
  if (!read_header(root.table(), result))
    return result;
  SectionReader reader(result.image, result.log);
  reader.read_table(root.table(), "");
  for (const char *path : {"tx.eq", "rx.eq"})
    if (const toml::table *section = root.at_path(path).as_table())
      reader.read_equaliser(*section, path, folder);
  return result;
}

} // namespace qv::tool::para
