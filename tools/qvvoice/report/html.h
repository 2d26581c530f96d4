/// @file html.h  A page from its template.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace qv::tool::report {

/// The template asset with every {{name}} replaced by values[name] or else by the asset of that name.
std::string fill(std::string_view page, const std::map<std::string_view, std::string> &values);

/// For text between tags.
std::string escape(std::string_view text);

/// For an href; a path may hold any byte.
std::string percent_encoded(const std::string &path);

/// For a script element of type application/json.
std::string script_json(const nlohmann::ordered_json &data);

} // namespace qv::tool::report
