/// @file equaliser_source.h  Equaliser coefficients from points of a response or from a file.
#pragma once

#include <toml++/toml.h>

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace qv::tool::para {

/// What is wrong with one key of an equaliser's section.
struct EqualiserError : std::runtime_error {
  EqualiserError(std::string wrong_key, const std::string &message)
      : std::runtime_error(message), key(std::move(wrong_key)) {}
  std::string key;
};

struct EqualiserSource {
  std::string key;          ///< "points" or "file"
  std::vector<double> half; ///< half of the response, the centre last, every one within -1 .. 32767/32768
  std::string warning;      ///< how far the filter is from the points; empty when it is close
};

/// What `points` or `file` ask for; nothing when the section has neither. Throws EqualiserError.
/// @param section  the section of one equaliser
/// @param folder   where coefficient files lie
std::optional<EqualiserSource> equaliser_source(const toml::table &section, const std::filesystem::path &folder,
                                                int32_t rate);

} // namespace qv::tool::para
