#include "para/text_header.h"

#include "para/keys.h"
#include "para/presets.h"
#include "para/toml_values.h"
#include <fmt/format.h>

namespace qv::tool::para {

namespace {

template <class Value>
std::optional<Value> header_value(const toml::table &root, const char *key, const char *right, FindingLog &log) {
  const toml::node *node = root.get(key);
  if (node == nullptr)
    return std::nullopt;
  if (const auto value = node->value_exact<Value>())
    return value;
  log.error(key, fmt::format("{}; right would be {}", found(*node), right));
  return std::nullopt;
}

/// An integer that must be one of two; 0 when the text has none or a wrong one.
int either(const toml::table &root, const char *key, int one, int other, FindingLog &log) {
  const std::string right = fmt::format("{} or {}", one, other);
  const auto value = header_value<int64_t>(root, key, right.c_str(), log);
  if (!value || *value == one || *value == other)
    return int(value.value_or(0));
  log.error(key, fmt::format("{}; right would be {}", *value, right));
  return 0;
}

bool take_base(const std::string &name, int32_t rate, ReadText &result) {
  const Preset *preset = find_preset(name);
  if (preset == nullptr) {
    result.log.error("base",
                     fmt::format("there is no preset \"{}\"{}", name, did_you_mean(nearest(name, preset_names()))));
    return false;
  }
  const ReadText base = read_text(preset->text, {});
  result.image = base.image;
  if (result.frame_ms == 0)
    result.frame_ms = base.frame_ms;
  const int32_t base_rate = base.image[config::rate_word];
  if (rate == 0 || rate == base_rate)
    return true;
  result.log.error("base", fmt::format("preset {} is for {} Hz, this file for {} Hz", name, base_rate, rate));
  return false;
}

/// A text of raw words alone stands for a file that the library refuses.
bool take_defaults(const toml::table &root, int32_t rate, ReadText &result) {
  if (rate != 0)
    result.image = config::default_image(rate);
  if (rate != 0 || (root.size() == 1 && root.contains(raw_section)))
    return true;
  result.log.error("",
                   fmt::format("neither rate nor base is given; right would be rate = 8000, rate = 16000 or a preset "
                               "such as base = \"{}\"",
                               preset_of(default_family, 16000, 320)));
  return false;
}

} // namespace

bool read_header(const toml::table &root, ReadText &result) {
  result.name = header_value<std::string>(root, "name", "a string", result.log).value_or("");
  result.frame_ms = either(root, "frame_ms", 16, 20, result.log);
  const int rate = either(root, "rate", 8000, 16000, result.log);
  const auto base = header_value<std::string>(root, "base", "the name of a preset", result.log);
  if (has_errors(result.log.findings()))
    return false;
  return base ? take_base(*base, rate, result) : take_defaults(root, rate, result);
}

} // namespace qv::tool::para
