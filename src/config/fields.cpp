#include "config/fields.h"

#include <algorithm>
#include <cmath>

namespace qv::config {

namespace {

bool has_echo_mark(Words words) {
  return std::ranges::equal(words.subspan<echo_mark_word, echo_mark.size()>(), echo_mark);
}

void set_echo_mark(Image &image, bool on) {
  if (on == has_echo_mark(image))
    return;
  std::ranges::copy(echo_mark, image.begin() + echo_mark_word);
  for (const Field &field : table::echo_control)
    if (field.encoding != Encoding::mark)
      set_value(field, image, 0, on ? double(field.preset) : 0);
  if (!on)
    std::fill_n(image.begin() + echo_mark_word, echo_mark.size(), int16_t(0));
}

} // namespace

bool owns_words(const Field &field, Words words) { return !field.needs_mark() || has_echo_mark(words); }

double value_of(const Field &field, Words words, int32_t element) {
  if (!owns_words(field, words))
    return double(field.preset);
  if (field.encoding == Encoding::mark)
    return 1;
  return double(words[size_t(field.word(words[rate_word], element))]) * double(unit_of(field.encoding));
}

void set_value(const Field &field, Image &image, int32_t element, double value) {
  if (field.encoding == Encoding::mark)
    set_echo_mark(image, std::abs(value) >= 0.5);
  else if (owns_words(field, image))
    image[size_t(field.word(image[rate_word], element))] =
        int16_t(std::clamp(std::round(value / double(unit_of(field.encoding))), -32768.0, 32767.0));
}

namespace {

double slot_value(const Field &field, Words words, int32_t element) {
  const double value = value_of(field, words, element);
  return field.needs_mark() ? std::clamp(value, double(field.least), double(field.greatest)) : value;
}

} // namespace

void store_fields(Words words, Parameters &parameters) {
  parameters.echo_control = {};
  for (const Field &field : fields)
    if (owns_words(field, words))
      for (int32_t i = 0; i < field.count(words[rate_word]); ++i)
        field.store(parameters, i, slot_value(field, words, i));
}

Image default_image(int32_t rate) {
  Image image{};
  image[rate_word] = int16_t(rate);
  image[magic_word] = magic;
  for (const Field &field : fields)
    for (int32_t i = 0; i < field.count(rate); ++i)
      set_value(field, image, i, double(field.preset));
  return image;
}

} // namespace qv::config
