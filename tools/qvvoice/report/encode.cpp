#include "report/encode.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>

#include <png.h>
#include <sndfile.h>

namespace qv::tool::report {
namespace {

/// A file in memory, as libsndfile wants it.
struct MemoryFile {
  Bytes bytes;
  size_t at = 0;
};

SF_VIRTUAL_IO memory_functions() {
  static constexpr auto file = [](void *user) -> MemoryFile & { return *static_cast<MemoryFile *>(user); };
  SF_VIRTUAL_IO io{};
  io.get_filelen = [](void *user) { return sf_count_t(file(user).bytes.size()); };
  io.tell = [](void *user) { return sf_count_t(file(user).at); };
  io.seek = [](sf_count_t offset, int whence, void *user) {
    MemoryFile &memory = file(user);
    const size_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? memory.at : memory.bytes.size();
    memory.at = size_t(sf_count_t(base) + offset);
    return sf_count_t(memory.at);
  };
  io.read = [](void *to, sf_count_t count, void *user) {
    MemoryFile &memory = file(user);
    const size_t there = std::min(size_t(count), memory.bytes.size() - std::min(memory.at, memory.bytes.size()));
    std::memcpy(to, memory.bytes.data() + memory.at, there);
    memory.at += there;
    return sf_count_t(there);
  };
  io.write = [](const void *from, sf_count_t count, void *user) {
    MemoryFile &memory = file(user);
    memory.bytes.resize(std::max(memory.bytes.size(), memory.at + size_t(count)));
    std::memcpy(memory.bytes.data() + memory.at, from, size_t(count));
    memory.at += size_t(count);
    return count;
  };
  return io;
}

} // namespace

std::string base64(std::span<const uint8_t> bytes) {
  static constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const size_t count = std::min<size_t>(3, bytes.size() - i);
    uint32_t group = 0;
    for (size_t k = 0; k < 3; ++k)
      group = group << 8 | (k < count ? bytes[i + k] : 0);
    for (size_t k = 0; k < 4; ++k)
      text += k <= count ? digits[group >> (18 - 6 * k) & 63] : '=';
  }
  return text;
}

Bytes flac(const Audio &audio) {
  MemoryFile memory;
  SF_VIRTUAL_IO io = memory_functions();
  SF_INFO info{};
  info.samplerate = audio.rate;
  info.channels = 1;
  info.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
  const auto count = sf_count_t(audio.samples.size());
  std::unique_ptr<SNDFILE, decltype(&sf_close)> file(sf_open_virtual(&io, SFM_WRITE, &info, &memory), sf_close);
  if (!file || sf_write_short(file.get(), audio.samples.data(), count) != count)
    throw std::runtime_error(std::string("audio cannot be packed: ") + sf_strerror(file.get()));
  file.reset(); // writes what is left
  return memory.bytes;
}

Bytes png(const GreyPicture &picture) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = png_uint_32(picture.width);
  image.height = png_uint_32(picture.height);
  image.format = PNG_FORMAT_GRAY;
  png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
  Bytes bytes(size);
  if (!png_image_write_to_memory(&image, bytes.data(), &size, 0, picture.pixels.data(), 0, nullptr))
    throw std::runtime_error(std::string("picture cannot be packed: ") + image.message);
  bytes.resize(size);
  return bytes;
}

} // namespace qv::tool::report
