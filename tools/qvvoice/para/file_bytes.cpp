#include "para/file_bytes.h"

#include <fstream>
#include <iterator>

namespace qv::tool::para {

std::optional<std::string> file_bytes(const std::filesystem::path &path) {
  std::ifstream file(path, std::ios::binary);
  if (!file)
    return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

} // namespace qv::tool::para
