/// @file options.h  What `qvvoice process` was asked for.
#pragma once

#include <optional>
#include <string>

namespace qv::tool::process {

struct Options {
  std::optional<std::string> mic, ref, far, stereo; ///< inputs
  std::optional<int> mic_channel, ref_channel, far_channel;
  std::optional<std::string> raw; ///< encoding
  std::optional<int> raw_rate, raw_channels;
  std::optional<std::string> out, played, trace; ///< results
  std::optional<std::string> para; ///< file or preset
  std::optional<int> rate; ///< Hz
  int frame_ms = 20;
  bool compensate = false;
  bool json = false;
};

} // namespace qv::tool::process
