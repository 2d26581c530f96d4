#include "audio/audio.h"

#include <stdexcept>

#include <fmt/format.h>
#include <sndfile.h>

namespace qv::tool {

void write_wav(OutputFile &file, const Audio &audio) {
  SF_INFO info{};
  info.samplerate = audio.rate;
  info.channels = 1;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  SNDFILE *wav = sf_open_fd(file.descriptor(), SFM_WRITE, &info, SF_FALSE);
  const auto count = sf_count_t(audio.samples.size());
  const bool written = wav && sf_write_short(wav, audio.samples.data(), count) == count;
  const bool closed = wav && sf_close(wav) == 0;
  if (!written || !closed)
    throw std::runtime_error(fmt::format("{}: writing failed: {}", file.path(), sf_strerror(nullptr)));
}

} // namespace qv::tool
