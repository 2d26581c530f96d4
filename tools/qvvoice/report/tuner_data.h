/// @file tuner_data.h  What the page that tunes by ear opens with.
#pragma once

#include <nlohmann/json.hpp>

#include "call/setup.h"
#include "para/para_file.h"
#include "report/encode.h"

namespace qv::tool::report {

inline constexpr double longest_part = 600; ///< s of a call that pages play, so that their size and the memory that
                                            ///< they take stay within bounds

/// {name, bytes, frame_ms}, the packed words in base64.
inline nlohmann::ordered_json parameters_json(const Setup &setup) {
  const std::string bytes = para::packed_bytes(setup.para);
  return {{"name", setup.para_source},
          {"bytes", base64({reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()})},
          {"frame_ms", 1000 * setup.frame_len / setup.rate}};
}

} // namespace qv::tool::report
