/// @file file_bytes.h  Files by their paths.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace qv::tool::para {

/// The bytes of a file; nothing, with the reason in errno, when it cannot be opened.
std::optional<std::string> file_bytes(const std::filesystem::path &path);

} // namespace qv::tool::para
