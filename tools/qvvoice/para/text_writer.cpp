#include "para/text_writer.h"

#include <algorithm>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "para/bands.h"
#include "para/keys.h"
#include "para/presets.h"
#include "para/text_reader.h"

namespace qv::tool::para {

namespace {

constexpr size_t line_width = 110, comment_column = 30;

std::string element(const Field &field, double value) {
  if (field.is_switch() && (value == 0 || value == 1))
    return value == 1 ? "true" : "false";
  return shortest(field, value);
}

/// Breaks a comma-separated list into lines.
std::string wrapped(const std::vector<std::string> &items) {
  std::string text = "[", line = "\n ";
  for (const std::string &item : items) {
    if (line.size() + item.size() > line_width) {
      text += line;
      line = "\n ";
    }
    line += fmt::format(" {},", item);
  }
  return text + line + "\n]";
}

std::string comment(const Field &field) {
  if (field.is_switch())
    return std::string(field.meaning);
  return fmt::format("{}{}{:g} .. {:g}: {}", field.unit, field.unit.empty() ? "" : ", ", field.least, field.greatest,
                     field.meaning);
}

std::string field_line(const Field &field, const Image &image) {
  const std::string line = fmt::format("{} = {}", field.key, toml_value(field, image));
  if (field.extent != config::Extent::scalar)
    return fmt::format("# {}\n{}\n", comment(field), line);
  return fmt::format("{:{}} # {}\n", line, comment_column, comment(field));
}

std::string group_ranges(int32_t rate) {
  std::vector<std::string> ranges;
  for (int32_t g = 0; g < group_count(rate); ++g) {
    const HzRange range = group_range(rate, g);
    ranges.push_back(fmt::format("{:.0f}-{:.0f}", range.low, range.high));
  }
  return fmt::format("# Arrays have one value per group of four bands: {} Hz.\n", fmt::join(ranges, ", "));
}

std::string section_text(const config::Section &section, const Image &image) {
  std::string lines;
  bool groups = false;
  for (const Field &field : config::fields)
    if (field.section == section.name) {
      lines += field_line(field, image);
      groups |= field.extent == config::Extent::groups;
    }
  return fmt::format("\n# {}\n{}[{}]\n{}", section.title, groups ? group_ranges(image[config::rate_word]) : "",
                     section.name, lines);
}

/// Whether a file says anything of a section.
bool holds(const Image &image, const config::Section &section) {
  return std::ranges::any_of(config::fields, [&](const Field &field) {
    return field.section == section.name && config::owns_words(field, image);
  });
}

/// Words that no field reads and that are not 0, the magic number when it is another, and all words of a
/// file whose rate is not served.
std::string raw_text(const Image &image) {
  std::string lines;
  const std::vector<bool> read = words_read(image);
  const auto expected = [&](size_t word) {
    return int(word) == config::magic_word && read[word] ? config::magic : int16_t(0);
  };
  for (size_t word = 0; word < image.size(); ++word)
    if (image[word] != expected(word) && (!read[word] || int(word) == config::magic_word))
      lines += fmt::format("{} = {}\n", word, image[word]);
  if (lines.empty() && rate_served(image[config::rate_word]))
    return "";
  return fmt::format("\n# Words that no field reads\n[{}]\n{}", raw_section, lines);
}

/// Puts every key behind a '#'; sections stay.
std::string disabled(const std::string &text) {
  std::string result;
  for (size_t start = 0; start < text.size();) {
    const size_t end = text.find('\n', start) + 1;
    const bool plain = text[start] == '\n' || text[start] == '#' || text[start] == '[';
    result += (plain ? "" : "# ") + text.substr(start, end - start);
    start = end;
  }
  return result;
}

/// The other ways to give an equaliser, after its own keys.
std::string equaliser_examples() {
  return "# Or, in place of half_taps and coef:\n"
         "# points = [[300, 0], [3000, -3]]   # [Hz, dB], designed into a linear-phase filter of so many taps:\n"
         "# taps = 129\n"
         "# file = \"response.txt\"            # or a whole symmetric response, designed elsewhere\n";
}

} // namespace

std::string toml_value(const Field &field, const Image &image) {
  const int32_t rate = image[config::rate_word];
  std::vector<std::string> items;
  for (int32_t i = 0; i < field.count(rate); ++i)
    items.push_back(element(field, config::value_of(field, image, i)));
  if (field.extent == config::Extent::scalar)
    return items.front();
  while (field.extent == config::Extent::taps && !items.empty() && items.back() == "0")
    items.pop_back();
  const std::string line = fmt::format("[{}]", fmt::join(items, ", "));
  return line.size() <= line_width ? line : wrapped(items);
}

std::string write_text(const Image &image) {
  const int32_t rate = image[config::rate_word];
  if (!rate_served(rate))
    return raw_text(image);
  std::string text = fmt::format("rate = {} # Hz\n", rate);
  for (const config::Section &section : config::sections)
    if (holds(image, section))
      text += section_text(section, image);
  return text + raw_text(image);
}

std::string write_new(const std::string &preset) {
  const Image image = read_text(find_preset(preset)->text, {}).image;
  std::string text =
      fmt::format("# Parameters of QV Voice. All that stays behind a '#' is taken from the base: take the "
                  "'#' away from what\n# you change, then run\n"
                  "#   qvvoice para check FILE, and qvvoice para pack FILE --out PACKED\n"
                  "name = \"my device\"\nbase = \"{}\"\n",
                  preset);
  for (const config::Section &section : config::sections) {
    text += disabled(section_text(section, image));
    if (section.name.ends_with(".eq"))
      text += equaliser_examples();
  }
  return text;
}

} // namespace qv::tool::para
