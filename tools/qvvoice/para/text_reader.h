/// @file text_reader.h  The text form of a parameter file into its words.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "para/finding.h"
#include "para/words.h"

namespace qv::tool::para {

struct ReadText {
  Image image{};
  std::string name;
  int frame_ms = 0; ///< 0 when neither the text nor its base says
  FindingLog log;   ///< with an error in it the image is not what the text says
};

/// Reads TOML. What the text does not set comes from its base, else from the defaults.
/// @param folder  where coefficient files lie
ReadText read_text(std::string_view text, const std::filesystem::path &folder);

} // namespace qv::tool::para
