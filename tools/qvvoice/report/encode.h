/// @file encode.h  Bytes as they are embedded into a page.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "audio/audio.h"

namespace qv::tool::report {

using Bytes = std::vector<uint8_t>;

/// RFC 4648, with padding.
std::string base64(std::span<const uint8_t> bytes);

/// The recording without loss, 16 bits, as browsers play it. @throws std::runtime_error
Bytes flac(const Audio &audio);

/// 8-bit picture, one byte per pixel, row by row from the top.
struct GreyPicture {
  int width = 0, height = 0;
  Bytes pixels; ///< [height * width]
};

/// @throws std::runtime_error
Bytes png(const GreyPicture &picture);

} // namespace qv::tool::report
