#include "para/presets.h"

#include <algorithm>

#include <fmt/format.h>

namespace qv::tool::para {

std::string purpose(const Preset &preset) { return std::string(preset.text.substr(2, preset.text.find('\n') - 2)); }

std::vector<std::string> preset_names() {
  std::vector<std::string> names;
  for (const Preset &preset : presets())
    names.emplace_back(preset.name);
  return names;
}

const Preset *find_preset(std::string_view name) {
  const auto found = std::find_if(presets().begin(), presets().end(), [&](const Preset &p) { return p.name == name; });
  return found == presets().end() ? nullptr : &*found;
}

std::vector<std::string> families() {
  std::vector<std::string> names;
  for (const Preset &preset : presets())
    if (const auto family = preset.name.substr(0, preset.name.find_last_of('-', preset.name.rfind('-') - 1));
        names.empty() || names.back() != family)
      names.emplace_back(family);
  return names;
}

std::string preset_of(std::string_view family, int32_t rate, int32_t frame_len) {
  return fmt::format("{}-{}k-{}ms", family, rate / 1000, frame_len * 1000 / rate);
}

} // namespace qv::tool::para
