/// @file reference.h  The field table for readers: terminal, documentation page, editors' schema.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace qv::tool::inspect {

/// One line per field: key, range, unit, default, meaning. @param section  "" for all
std::string reference_text(const std::string &section);

/// The page docs/parameters.md.
std::string reference_markdown();

/// [{"key", "section", "name", "field", "type" ("switch", "integer", "number"), "extent" ("scalar", "groups", "taps"),
/// "words_8k", "words_16k", "unit", "least", "greatest", "step", "default", "meaning"}]
nlohmann::ordered_json reference_json(const std::string &section);

/// JSON schema (draft 7) of the text form, for editors.
nlohmann::ordered_json text_schema();

} // namespace qv::tool::inspect
