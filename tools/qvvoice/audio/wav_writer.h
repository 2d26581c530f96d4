/// @file wav_writer.h  A mono recording of 16 bits, written as it comes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "support/output_file.h"

namespace qv::tool {

/// WAV, or the samples alone. Into a pipe the header goes with sizes that say "unknown" (all bits set), as other
/// programs write and read them; a file gets the true ones, or these where it is longer than 4 GiB.
class WavWriter {
public:
  /// Writes the header. @param file  outlives this object; committing it is left to the caller
  /// @throws InputError when it is a terminal. std::runtime_error when the disk refuses
  WavWriter(OutputFile &file, int rate, bool header = true);

  void write(std::span<const int16_t> samples); ///< @throws std::runtime_error
  void finish();                                ///< @throws std::runtime_error

private:
  OutputFile &file_;
  int rate_;
  bool header_;
  size_t bytes_ = 0; ///< of samples
};

} // namespace qv::tool
