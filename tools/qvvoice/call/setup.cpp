#include "call/setup.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "support/error.h"

namespace qv::tool {

using namespace qv::config;

void check_layout(int rate, int frame_ms) {
  if (rate != 8000 && rate != 16000)
    throw InputError("rate: {} Hz is not served; 8000 or 16000 is", rate);
  if (frame_ms != 16 && frame_ms != 20)
    throw InputError("frame: {} ms is not served; 16 or 20 is", frame_ms);
}

Image read_image(const std::string &path) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error))
    throw InputError("{}: is a folder; name a binary parameter file", path);
  std::ifstream file(path, std::ios::binary);
  if (!file)
    throw InputError("{}: parameter file cannot be read: {}", path, std::strerror(errno));
  uint8_t bytes[2 * word_count];
  file.read(reinterpret_cast<char *>(bytes), sizeof bytes);
  if (file.gcount() < std::streamsize(sizeof bytes))
    throw InputError("{}: parameter file holds {} bytes; {} ({} words) are needed", path, file.gcount(), sizeof bytes,
                     word_count);
  Image image;
  for (size_t i = 0; i < image.size(); ++i)
    image[i] = int16_t(bytes[2 * i] | bytes[2 * i + 1] << 8);
  if (image[magic_word] != magic)
    throw InputError("{}: not a parameter file: word {} is {}; {} is needed", path, magic_word, image[magic_word],
                     magic);
  return image;
}

Setup make_setup(const std::optional<std::string> &para_path, int rate, int frame_ms) {
  check_layout(rate, frame_ms);
  const int frame_len = rate / 1000 * frame_ms;
  if (!para_path)
    return {default_image(rate), fmt::format("built-in default for {} Hz", rate), rate, frame_len};
  const Image image = read_image(*para_path);
  if (image[rate_word] != rate)
    throw InputError(
        "{}: parameter file is for {} Hz (word {}), the run is at {} Hz; give a file for {} Hz, or another --rate",
        *para_path, image[rate_word], rate_word, rate, rate);
  return {image, *para_path, rate, frame_len};
}

} // namespace qv::tool
