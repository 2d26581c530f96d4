#include "inspect/reference.h"

#include <fmt/format.h>

#include "para/keys.h"
#include "para/text_writer.h"

namespace qv::tool::inspect {

using namespace para;

namespace {

using Json = nlohmann::ordered_json;

bool in_section(const Field &field, const std::string &section) {
  return section.empty() || field.section == section || field.section.starts_with(section + '.');
}

/// "20", "18 .. 32 by 2", "30, 37 .. 79": the words of a field at a rate.
std::string words_of(const Field &field, int32_t rate) {
  const int32_t first = field.word(rate, 0), last = field.word(rate, field.words(rate) - 1);
  if (first == last)
    return std::to_string(first);
  return field.word_stride == 1 ? fmt::format("{} .. {}", first, last)
                                : fmt::format("{}, {} .. {}", first, first + field.word_stride, last);
}

std::string default_of(const Field &field) {
  if (field.is_switch())
    return field.preset != 0 ? "true" : "false";
  return shortest(field, double(field.preset));
}

std::string range_of(const Field &field) {
  return field.is_switch() ? "true, false" : fmt::format("{:g} .. {:g}", field.least, field.greatest);
}

const char *type_of(const Field &field) {
  return field.is_switch()                                                                          ? "switch"
         : field.encoding == config::Encoding::integer || field.encoding == config::Encoding::int16 ? "integer"
                                                                                                    : "number";
}

const char *extent_of(const Field &field) {
  return field.extent == config::Extent::scalar ? "scalar" : field.extent == config::Extent::groups ? "groups" : "taps";
}

std::string markdown_section(const config::Section &section) {
  std::string text =
      fmt::format("\n## `[{}]` {}\n\n| key | range | unit | step | default | words at 8 kHz | at 16 kHz | "
                  "field | meaning |\n|---|---|---|---|---|---|---|---|---|\n",
                  section.name, section.title);
  for (const Field &field : config::fields)
    if (field.section == section.name)
      text += fmt::format("| `{}`{} | {} | {} | {} | {} | {} | {} | `{}` | {} |\n", field.key,
                          field.extent == config::Extent::scalar ? "" : " [ ]", range_of(field), field.unit,
                          field.is_switch() ? "" : plain(config::unit_of(field.encoding), 7), default_of(field),
                          words_of(field, 8000), words_of(field, 16000), field.name, field.meaning);
  return text;
}

} // namespace

std::string reference_text(const std::string &section) {
  std::string text;
  for (const Field &field : config::fields)
    if (in_section(field, section))
      text += fmt::format("{:32} {:14} {:8} {:8} {}\n", path_of(field), range_of(field), field.unit, default_of(field),
                          field.meaning);
  return text;
}

std::string reference_markdown() {
  std::string text =
      "# Parameters\n\n"
      "Written by `qvvoice para fields --form markdown`.\n\n"
      "A parameter file is packed, 500 little-endian 16-bit words that the library reads, or a text in TOML that\n"
      "`qvvoice para pack` turns into them. Every key of the text is optional: what is missing comes from the preset\n"
      "that `base` names, else from the defaults below. `[ ]` marks an array: one value per group of four bands (6\n"
      "groups at 8 kHz, 8 at 16 kHz), or the coefficients of an equaliser. Times in samples may be written as\n"
      "`\"20 ms\"`. A number that lies between two steps is rounded to the nearer one, with a message unless it is "
      "the\n"
      "shortest decimal of that step: 0.95 stands for 31130/32768.\n\n"
      "`[echo_control]` stands in a file only while its `enable` is true: two words mark it, and without both of them\n"
      "nothing reads the words behind. Switched on, the section begins at its defaults; switched off, nothing of it "
      "is\n"
      "stored. A library that does not know it takes the rest of the file and runs the echo canceller of `[aec]`.\n\n"
      "## Beside the fields\n\n| key | type | meaning |\n|---|---|---|\n";
  for (const TextKey &key : text_keys)
    text += fmt::format("| `{}{}` | {} | {} |\n", key.section.empty() ? "" : "tx.eq., rx.eq.", key.key, key.type,
                        key.meaning);
  text += "| `[raw]` | integers | words that no field reads, by their number: `79 = 12` |\n";
  for (const config::Section &section : config::sections)
    text += markdown_section(section);
  return text;
}

Json reference_json(const std::string &section) {
  Json rows = Json::array();
  for (const Field &field : config::fields)
    if (in_section(field, section))
      rows.push_back({{"key", path_of(field)},
                      {"section", field.section},
                      {"name", field.key},
                      {"field", field.name},
                      {"type", type_of(field)},
                      {"extent", extent_of(field)},
                      {"words_8k", words_of(field, 8000)},
                      {"words_16k", words_of(field, 16000)},
                      {"unit", field.unit},
                      {"least", field.least},
                      {"greatest", field.greatest},
                      {"step", config::unit_of(field.encoding)},
                      {"default", field.is_switch() ? Json(field.preset != 0) : Json(std::stod(default_of(field)))},
                      {"meaning", field.meaning}});
  return rows;
}

} // namespace qv::tool::inspect
