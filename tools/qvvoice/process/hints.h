/// @file hints.h  What the recordings themselves say is wrong, as far as a run sees it.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "process/inputs.h"

namespace qv::tool::process {

/// How a recording begins.
class Opening {
public:
  explicit Opening(int rate);
  void add(std::span<const int16_t> samples);

  const std::vector<int16_t> &samples() const { return samples_; } ///< at most a minute
  int rate() const { return rate_; }                               ///< Hz

private:
  int rate_;
  size_t longest_;
  std::vector<int16_t> samples_;
};

/// Silent, clipped and swapped inputs, each with the command that tells more.
std::vector<std::string> hints(const Input &mic, const Opening &mic_opening, const Input &ref,
                               const Opening &ref_opening);

} // namespace qv::tool::process
