/// @file equaliser_source.h  Equaliser coefficients from points of a response or from a file.
#pragma once

#include <toml++/toml.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "para/finding.h"

namespace qv::tool::para {

struct EqualiserSource {
  std::string key;          ///< "points" or "file"
  std::vector<double> half; ///< half of the response, the centre last, every one within -1 .. 32767/32768
  std::string warning;      ///< how far the filter is from the points; empty when it is close
};

/// What `points` or `file` ask for; nothing when the section has neither, or after an error in the log.
/// @param section  the section of one equaliser, at `path`
/// @param folder   where coefficient files lie
std::optional<EqualiserSource> equaliser_source(const toml::table &section, const std::string &path,
                                                const std::filesystem::path &folder, int32_t rate, FindingLog &log);

} // namespace qv::tool::para
