// A page has no files but those that the user hands over.

#include "para/file_bytes.h"

namespace qv::tool::para {

std::optional<std::string> file_bytes(const std::filesystem::path &) { return std::nullopt; }

} // namespace qv::tool::para
