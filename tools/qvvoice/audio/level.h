/// @file level.h  How loud a recording is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace qv::tool {

/// Sums over a recording, block by block.
class LevelMeter {
public:
  void add(std::span<const int16_t> samples);

  size_t count() const { return count_; }     ///< samples
  size_t clipped() const { return clipped_; } ///< samples at either end of the 16-bit range

  /// RMS in dBFS: 0 is a full-scale square wave. Minus infinity for digital silence or nothing.
  double dbfs() const;

private:
  double energy_ = 0;
  size_t count_ = 0, clipped_ = 0;
};

} // namespace qv::tool
