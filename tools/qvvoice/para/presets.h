/// @file presets.h  The presets that are built into the tool.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "para/words.h"

namespace qv::tool::para {

struct Preset {
  std::string_view name;
  std::string_view text; ///< text form
};

/// The first line of a preset's text, a comment: what the preset is for.
std::string purpose(const Preset &preset);

/// Every preset, by name. The array is generated from presets/*.toml.
std::span<const Preset> presets();

std::vector<std::string> preset_names();

/// The preset of a name, or null.
const Preset *find_preset(std::string_view name);

/// Every family, by name: the presets' names without layouts.
std::vector<std::string> families();

/// Family that the verbs take when nothing is asked for.
inline constexpr std::string_view default_family = "clear";

/// A family's preset for a layout: "clear-16k-20ms".
/// @param frame_len  samples
std::string preset_of(std::string_view family, int32_t rate, int32_t frame_len);

} // namespace qv::tool::para
