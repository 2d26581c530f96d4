#include "api/image_file.h"

#include <cstdio>
#include <memory>

QvVoiceStatus qv::api::read_image(const char *path, config::Image &image) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(path ? std::fopen(path, "rb") : nullptr, std::fclose);
  if (!file)
    return QV_VOICE_NO_FILE;
  uint8_t bytes[2 * config::word_count];
  if (std::fread(bytes, 2, image.size(), file.get()) < image.size())
    return QV_VOICE_SHORT_FILE;
  for (size_t i = 0; i < image.size(); ++i)
    image[i] = int16_t(bytes[2 * i] | bytes[2 * i + 1] << 8);
  return QV_VOICE_OK;
}
