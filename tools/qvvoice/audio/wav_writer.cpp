#include "audio/wav_writer.h"

#include <algorithm>
#include <bit>
#include <string>

#include "audio/audio.h"
#include "support/error.h"

namespace qv::tool {
namespace {

constexpr size_t unknown = 0xffffffff;
constexpr size_t header_bytes = 44;

std::string little_endian(size_t value, size_t bytes) {
  std::string text;
  for (size_t i = 0; i < bytes; ++i)
    text += char(value >> 8 * i);
  return text;
}

/// @param bytes  of samples
std::string wav_header(int rate, size_t bytes) {
  const auto word = [](size_t value) { return little_endian(value, 4); };
  const size_t all = bytes > unknown - header_bytes ? unknown : bytes + header_bytes - 8;
  const std::string format = little_endian(1, 2) + little_endian(1, 2) + word(size_t(rate)) + word(size_t(rate) * 2) +
                             little_endian(2, 2) + little_endian(16, 2); // PCM, channels, rates, block, bits
  return "RIFF" + word(all) + "WAVEfmt " + word(format.size()) + format + "data" + word(std::min(bytes, unknown));
}

} // namespace

WavWriter::WavWriter(OutputFile &file, int rate, bool header) : file_(file), rate_(rate), header_(header) {
  if (file.is_terminal())
    throw InputError("{}: is a terminal; let a program read the sound (| aplay, | ffmpeg -i - ...), or name a file",
                     file.path());
  if (header_)
    file_.write(wav_header(rate_, unknown));
}

void WavWriter::write(std::span<const int16_t> samples) {
  static_assert(std::endian::native == std::endian::little);
  file_.write({reinterpret_cast<const char *>(samples.data()), samples.size_bytes()});
  bytes_ += samples.size_bytes();
}

void WavWriter::finish() {
  if (header_ && !file_.is_pipe())
    file_.rewrite(0, wav_header(rate_, bytes_));
}

void write_wav(OutputFile &file, const Audio &audio) {
  WavWriter wav(file, audio.rate);
  wav.write(audio.samples);
  wav.finish();
}

} // namespace qv::tool
