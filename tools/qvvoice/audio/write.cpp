#include "audio/audio.h"

#include <memory>
#include <stdexcept>

#include <fmt/format.h>
#include <sndfile.h>

namespace qv::tool {

void write_wav(OutputFile &file, const Audio &audio) {
  SF_INFO info{};
  info.samplerate = audio.rate;
  info.channels = 1;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  const std::unique_ptr<SNDFILE, int (*)(SNDFILE *)> wav(sf_open_fd(file.descriptor(), SFM_WRITE, &info, SF_FALSE),
                                                         sf_close);
  const auto count = sf_count_t(audio.samples.size());
  if (!wav || sf_write_short(wav.get(), audio.samples.data(), count) != count)
    throw std::runtime_error(fmt::format("{}: writing failed: {}", file.path(), sf_strerror(wav.get())));
}

} // namespace qv::tool
