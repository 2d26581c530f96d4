/// @file text_writer.h  The words of a parameter file as text.
#pragma once

#include <string>

#include "para/words.h"

namespace qv::tool::para {

/// Every word of the image, commented; read_text gives the same words again, whatever they are.
std::string write_text(const Image &image);

/// A text to start from: the preset as its base and each key with the preset's value behind a '#'.
/// @param preset  name of a preset
std::string write_new(const std::string &preset);

/// The value or the array of a field as TOML.
std::string toml_value(const Field &field, const Image &image);

} // namespace qv::tool::para
