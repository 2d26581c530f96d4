/// @file packed_presets.h  The presets in their packed form, for plugins: no file has to be found at run time.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace qv {

struct PackedPreset {
  std::string_view name;           ///< "balanced-16k-20ms", as `qvvoice presets` lists it
  std::array<uint8_t, 1000> bytes; ///< 500 little-endian words
};

/// Every preset, by name.
std::span<const PackedPreset> packed_presets();

} // namespace qv
