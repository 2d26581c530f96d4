#include "audio/audio.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string_view>

#include <sndfile.h>

#include "audio/full_scale.h"
#include "support/error.h"

namespace qv::tool {
namespace {

namespace fs = std::filesystem;

struct RawEncoding {
  int format;
  int bytes; ///< per sample
};

const std::map<std::string, RawEncoding> &raw_table() {
  static const std::map<std::string, RawEncoding> table = {
      {"s8", {SF_FORMAT_PCM_S8, 1}},
      {"u8", {SF_FORMAT_PCM_U8, 1}},
      {"s16le", {SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE, 2}},
      {"s16be", {SF_FORMAT_PCM_16 | SF_ENDIAN_BIG, 2}},
      {"s24le", {SF_FORMAT_PCM_24 | SF_ENDIAN_LITTLE, 3}},
      {"s32le", {SF_FORMAT_PCM_32 | SF_ENDIAN_LITTLE, 4}},
      {"f32le", {SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE, 4}},
      {"ulaw", {SF_FORMAT_ULAW, 1}},
      {"alaw", {SF_FORMAT_ALAW, 1}},
  };
  return table;
}

struct Closer {
  void operator()(SNDFILE *file) const { sf_close(file); }
};

struct OpenFile {
  std::unique_ptr<SNDFILE, Closer> handle;
  SF_INFO info{};
};

void check_present(const std::string &path) {
  std::error_code error;
  if (!fs::exists(path, error))
    throw InputError("{}: no such file", path);
  if (fs::is_directory(path, error))
    throw InputError("{}: is a folder; name an audio file", path);
  if (fs::is_regular_file(path, error) && fs::file_size(path, error) == 0)
    throw InputError("{}: is empty; an audio file with at least one sample is needed", path);
}

SF_INFO raw_info(const std::string &path, const RawFormat &raw) {
  const auto found = raw_table().find(raw.encoding);
  if (found == raw_table().end())
    throw InputError("{}: raw encoding '{}' is not known; one of {}", path, raw.encoding,
                     fmt::join(raw_encodings(), ", "));
  std::error_code error;
  const auto block = uintmax_t(found->second.bytes * raw.channels);
  if (const auto size = fs::file_size(path, error); !error && size % block != 0)
    throw InputError("{}: {} bytes are not a whole number of {} samples in {} channel(s)", path, size, raw.encoding,
                     raw.channels);
  SF_INFO info{};
  info.samplerate = raw.rate;
  info.channels = raw.channels;
  info.format = SF_FORMAT_RAW | found->second.format;
  return info;
}

/// No part of a WAV file before its samples may reach beyond the file: libsndfile then reads on for minutes.
void check_wav_parts(const std::string &path) {
  if (!fs::is_regular_file(path))
    return;
  std::ifstream file(path, std::ios::binary);
  const auto read = [&](auto... bytes) { return bool((file.read(bytes, 4) && ...)); };
  char riff[5] = "", size[4], wave[5] = "", name[5] = "", length[4];
  if (!read(riff, size, wave) || std::string_view(riff) != "RIFF" || std::string_view(wave) != "WAVE")
    return;
  while (read(name, length) && std::string_view(name) != "data") {
    uint32_t promised;
    std::memcpy(&promised, length, sizeof promised);
    const auto begin = uintmax_t(file.tellg()), there = fs::file_size(path) - begin;
    if (promised > there)
      throw InputError("{}: broken: its part at byte {} promises {} bytes, {} are there", path, begin - 8, promised,
                       there);
    file.seekg(promised + promised % 2, std::ios::cur);
  }
}

/// Bytes of samples that a WAV header promises beyond what the file holds; libsndfile tells its log only.
/// Recorders that write to a pipe put about 2^31 or 2^32 there, which promises nothing.
void check_wav_length(const std::string &path, SNDFILE *file) {
  char log[8192] = "";
  sf_command(file, SFC_GET_LOG_INFO, log, sizeof log);
  const char *data = std::strstr(log, "\ndata : ");
  unsigned long promised = 0, found = 0;
  if (data && std::sscanf(data, "\ndata : %lu (should be %lu)", &promised, &found) == 2 && promised > found &&
      promised < 0x7fff0000)
    throw InputError("{}: cut short: its header promises {} bytes of samples, {} are there", path, promised, found);
}

OpenFile open_audio(const Source &source) {
  check_present(source.path);
  OpenFile file;
  if (source.raw)
    file.info = raw_info(source.path, *source.raw);
  else
    check_wav_parts(source.path);
  file.handle.reset(sf_open(source.path.c_str(), SFM_READ, &file.info));
  if (file.handle)
    check_wav_length(source.path, file.handle.get());
  else
    throw InputError("{}: cannot be read as audio: {} WAV, FLAC and other files that libsndfile knows are read, and "
                     "files without a header when their encoding is given",
                     source.path, sf_strerror(nullptr));
  return file;
}

/// Index of the channel to take, from 0.
int chosen_channel(const Source &source, int channels) {
  if (source.channel == 0 && channels == 1)
    return 0;
  if (source.channel == 0)
    throw InputError("{}: has {} channels; choose one of 1 to {} with {}", source.path, channels, channels,
                     source.channel_option);
  if (source.channel < 1 || source.channel > channels)
    throw InputError("{}: has no channel {}; it has {}", source.path, source.channel,
                     channels == 1 ? "one channel" : fmt::format("channels 1 to {}", channels));
  return source.channel - 1;
}

} // namespace

const std::vector<std::string> &raw_encodings() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> all;
    for (const auto &[name, encoding] : raw_table())
      all.push_back(name);
    return all;
  }();
  return names;
}

Recording read_audio(const Source &source) {
  const OpenFile file = open_audio(source);
  const int channels = file.info.channels;
  const int channel = chosen_channel(source, channels);
  Recording recording{{file.info.samplerate, {}}, channels, file.info.samplerate, 0};
  std::vector<int16_t> &samples = recording.audio.samples;
  constexpr sf_count_t block = 4096; // frames
  std::vector<double> interleaved(size_t(block * channels));
  while (const sf_count_t count = sf_readf_double(file.handle.get(), interleaved.data(), block)) {
    for (sf_count_t i = 0; i < count; ++i) {
      const double value = interleaved[size_t(i * channels + channel)];
      if (std::isnan(value))
        throw InputError("{}: sample {} is not a number; the file is damaged", source.path, samples.size());
      samples.push_back(from_full_scale(value, recording.clipped));
    }
  }
  if (sf_error(file.handle.get()) != SF_ERR_NO_ERROR)
    throw InputError("{}: damaged after {} samples: {}", source.path, samples.size(), sf_strerror(file.handle.get()));
  if ((file.info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_FLAC && file.info.frames > sf_count_t(samples.size()))
    throw InputError("{}: cut short: its header promises {} samples, {} are there", source.path, file.info.frames,
                     samples.size());
  if (samples.empty())
    throw InputError("{}: holds no samples; at least one is needed", source.path);
  return recording;
}

} // namespace qv::tool
