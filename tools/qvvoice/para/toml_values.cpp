#include "para/toml_values.h"

#include <charconv>
#include <sstream>

#include <fmt/format.h>

namespace qv::tool::para {

namespace {

/// "20 ms" in samples.
std::optional<double> samples_of(const std::string &text, int32_t rate) {
  std::istringstream stream(text);
  double ms = 0;
  std::string unit, rest;
  if (!(stream >> ms >> unit) || unit != "ms" || stream >> rest)
    return std::nullopt;
  return ms * rate / 1000;
}

} // namespace

std::string found(const toml::node &node) {
  if (const auto *array = node.as_array())
    return fmt::format("an array of {}", array->size());
  if (node.is_table())
    return "a table";
  if (const auto *string = node.as_string())
    return fmt::format("\"{}\", a string", string->get());
  if (const auto *real = node.as_floating_point())
    return fmt::format("{}", real->get());
  std::ostringstream text;
  node.visit([&](const auto &value) { text << value; });
  return text.str() + (node.is_boolean() ? ", a boolean" : "");
}

std::string right_type(const Field &field) {
  if (field.is_switch())
    return "true or false";
  const std::string number = field.unit.empty() ? "a number" : fmt::format("a number ({})", field.unit);
  return field.unit == "samples" ? number + " or a time such as \"20 ms\"" : number;
}

std::optional<double> number(const Field &field, const toml::node &node, int32_t rate) {
  if (const auto *integer = node.as_integer())
    return double(integer->get());
  if (const auto *boolean = node.as_boolean(); boolean && field.is_switch())
    return boolean->get();
  if (const auto *real = node.as_floating_point(); real && !field.is_switch())
    return real->get();
  if (const auto *text = node.as_string(); text && field.unit == "samples")
    return samples_of(text->get(), rate);
  return std::nullopt;
}

int word_number(const std::string &key) {
  int word = -1;
  const auto [end, status] = std::from_chars(key.data(), key.data() + key.size(), word);
  const bool whole = status == std::errc() && end == key.data() + key.size();
  return whole && word >= 0 && word < config::word_count ? word : -1;
}

std::string owner_of(int32_t word, int32_t rate) {
  for (const Field &field : config::fields)
    for (int32_t i = 0; i < field.words(rate); ++i)
      if (field.word(rate, i) == word)
        return path_of(field);
  return "rate";
}

} // namespace qv::tool::para
