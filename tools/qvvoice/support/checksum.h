/// @file checksum.h  A number that tells texts apart.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <fmt/format.h>

namespace qv::tool {

/// FNV-1a of 64 bits (Fowler, Noll and Vo), as 16 hexadecimal digits. Against mistakes, not against intent.
inline std::string checksum_of(std::string_view text) {
  uint64_t hash = 0xCBF29CE484222325;
  for (const char c : text)
    hash = (hash ^ uint8_t(c)) * 0x100000001B3;
  return fmt::format("{:016x}", hash);
}

} // namespace qv::tool
