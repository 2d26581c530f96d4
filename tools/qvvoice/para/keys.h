/// @file keys.h  Keys of the text form beside those of the fields.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace qv::tool::para {

struct TextKey {
  std::string_view section; ///< "" before the first section; "eq" in both equalisers
  std::string_view key;
  std::string_view type; ///< "string", "integer" or "array"
  std::string_view meaning;
};

inline constexpr auto text_keys = std::to_array<TextKey>({
    {"", "name", "string", "what the file is called in reports"},
    {"", "rate", "integer", "sample rate in Hz, 8000 or 16000; may be left out where base has it"},
    {"", "frame_ms", "integer", "frame length in ms that the values are meant for, 16 or 20; the packed file has none"},
    {"", "base", "string", "preset from which all that the file does not set is taken; without it the defaults"},
    {"eq", "points", "array", "wanted response, [[Hz, dB], ...] in rising frequency: the filter is designed from it"},
    {"eq", "taps", "integer", "length of the filter designed from points, odd, 1 .. 257; 129 without it"},
    {"eq", "file", "string",
     "text file of a whole symmetric response, numbers with blanks or commas between them; its folder is that of this "
     "file"},
});

inline constexpr std::string_view raw_section = "raw"; ///< words that no field reads, by their number

/// Whether a name is a section or the beginning of one: "tx", "tx.agc".
bool is_section(std::string_view path);

/// Whether a path is one of `text_keys`.
bool is_text_key(std::string_view path);

/// The known path or preset most like a mistyped one: the same last part elsewhere, the name that the
/// field has in the library, or few edits away; empty when nothing is like it.
std::string nearest_path(std::string_view path);
std::string nearest(std::string_view word, const std::vector<std::string> &known);

/// " (did you mean X?)", or nothing.
std::string did_you_mean(const std::string &name);

} // namespace qv::tool::para
