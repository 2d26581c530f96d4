/// @file options.h  What `qvvoice process` was asked for.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace qv::tool::process {

struct Options {
  std::optional<std::string> mic, ref, far, stereo; ///< inputs
  std::optional<int> mic_channel, ref_channel, far_channel;
  std::optional<std::string> raw; ///< encoding
  std::optional<int> raw_rate, raw_channels;
  std::optional<std::string> out, played, trace; ///< results
  bool raw_out = false;                          ///< samples alone in out and played
  std::optional<std::string> para;               ///< file or preset
  std::optional<int> rate;                       ///< Hz
  int frame_ms = 20;
  bool compensate = false;
  bool json = false;

  /// Names of the results that are wanted.
  std::vector<std::string> results() const {
    std::vector<std::string> names;
    for (const auto *name : {&out, &played, &trace})
      if (*name)
        names.push_back(**name);
    return names;
  }
};

} // namespace qv::tool::process
