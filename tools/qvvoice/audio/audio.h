/// @file audio.h  A mono recording, and how recordings are read, converted and written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/output_file.h"

namespace qv::tool {

struct Audio {
  int rate = 0; ///< Hz
  std::vector<int16_t> samples;

  double seconds() const { return double(samples.size()) / rate; }
};

/// What a file without a header holds.
struct RawFormat {
  std::string encoding; ///< one of raw_encodings()
  int rate = 0;         ///< Hz
  int channels = 1;
};

/// "s16le", "ulaw" and the like.
const std::vector<std::string> &raw_encodings();

/// Where a recording comes from.
struct Source {
  std::string path;
  int channel = 0; ///< from 1; 0 takes the only channel and refuses a file with several
  std::optional<RawFormat> raw = {};
  std::string channel_option = "--channel"; ///< how the user chooses the channel
};

struct Recording {
  Audio audio;
  int channels = 0;   ///< of the file
  int file_rate = 0;  ///< Hz; differs from audio.rate after a conversion
  size_t clipped = 0; ///< samples beyond full scale, in the file or after conversion
  std::string path;   ///< for messages
};

/// Reads one channel whole, as AudioReader does.
/// @throws InputError as AudioReader does
Recording read_audio(const Source &source);

/// Converts to another rate by libsoxr, without delay; nothing to do at the same rate. file_rate stays.
/// @param rate  Hz
/// @throws InputError when no sample is left
void convert_rate(Recording &recording, int rate);

/// Writes a 16-bit mono WAV file; committing it is left to the caller.
/// @throws std::runtime_error when the disk refuses
void write_wav(OutputFile &file, const Audio &audio);

} // namespace qv::tool
