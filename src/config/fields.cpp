#include "config/fields.h"

#include <algorithm>
#include <cmath>

namespace qv::config {

int16_t encode(const Field &field, double value) {
  return int16_t(std::clamp(std::round(value / unit_of(field.encoding)), -32768.0, 32767.0));
}

Image default_image(int32_t rate) {
  Image image{};
  image[rate_word] = int16_t(rate);
  image[magic_word] = magic;
  for (const Field &field : fields)
    for (int32_t i = 0; i < field.count(rate); ++i)
      image[size_t(field.word(rate, i))] = encode(field, field.preset);
  return image;
}

} // namespace qv::config
