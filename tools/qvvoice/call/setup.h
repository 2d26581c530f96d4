/// @file setup.h  What a recording is run with.
#pragma once

#include <optional>
#include <string>

#include "config/fields.h"

namespace qv::tool {

struct Setup {
  config::Image para;      ///< for `rate`; word 9 is the magic word
  std::string para_source; ///< where `para` comes from, for the user
  int rate;                ///< 8000 or 16000, in Hz
  int frame_len;           ///< 128 or 160 at 8000 Hz, 256 or 320 at 16000 Hz, in samples
};

/// @throws InputError unless the rate is 8000 or 16000 Hz and the frame 16 or 20 ms long
void check_layout(int rate, int frame_ms);

/// @param name  parameter file, packed or as text, or the name of a preset
/// @throws InputError when the file cannot be read, has errors or lacks the magic word 9
config::Image read_image(const std::string &name);

/// Says on standard error, once for every name, that a parameter file has errors. @param name  as for read_image
void warn_about(const std::string &name);

/// The setup of parameters that have been read. @throws InputError for a layout that is not served, and for another
/// rate
Setup setup_of(const config::Image &para, std::string source, int rate, int frame_ms);

/// Warns about what has errors. @param para  as for read_image; without it the default preset of the layout
/// @throws InputError for a layout that is not served, and for a file that read_image refuses or that is for another
///         rate
Setup make_setup(const std::optional<std::string> &para, int rate, int frame_ms);

} // namespace qv::tool
