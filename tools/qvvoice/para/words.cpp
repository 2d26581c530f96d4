#include "para/words.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <fmt/format.h>

namespace qv::tool::para {

namespace {

/// Decimals at which every word of an encoding has a decimal of its own: half a step is more than
/// half a unit of the last place.
int most_decimals(config::Encoding encoding) {
  switch (encoding) {
  case config::Encoding::q15:
    return 5;
  case config::Encoding::q12:
    return 4;
  case config::Encoding::q5:
    return 2;
  default:
    return 0;
  }
}

} // namespace

std::string path_of(const Field &field) { return fmt::format("{}.{}", field.section, field.key); }

const Field *find_field(std::string_view path) {
  const size_t dot = path.rfind('.');
  if (dot == path.npos)
    return nullptr;
  const auto found = std::find_if(config::fields.begin(), config::fields.end(), [&](const Field &field) {
    return field.section == path.substr(0, dot) && field.key == path.substr(dot + 1);
  });
  return found == config::fields.end() ? nullptr : &*found;
}

std::vector<bool> words_read(const Image &image) {
  const int32_t rate = image[config::rate_word];
  std::vector<bool> read(config::word_count, false);
  if (!rate_served(rate))
    return read;
  read[config::rate_word] = read[config::magic_word] = true;
  for (const Field &field : config::fields)
    if (config::owns_words(field, image))
      for (int32_t i = 0; i < field.words(rate); ++i)
        read[size_t(field.word(rate, i))] = true;
  return read;
}

std::string shortest(const Field &field, double value) {
  const double unit = config::unit_of(field.encoding), steps = std::round(value / unit);
  double power = 1;
  for (int decimals = 0; decimals < most_decimals(field.encoding); ++decimals, power *= 10) {
    const double rounded = std::round(steps * unit * power) / power;
    if (std::round(rounded / unit) == steps)
      return fmt::format("{:.{}f}", rounded, decimals);
  }
  return fmt::format("{:.{}f}", steps * unit, most_decimals(field.encoding));
}

std::string plain(double value, int decimals) {
  std::string text = fmt::format("{:.{}f}", value, decimals);
  if (text.find('.') == text.npos)
    return text;
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.')
    text.pop_back();
  return text == "-0" ? "0" : text;
}

double Values::operator()(std::string_view path, int32_t element) const {
  const Field *field = find_field(path);
  if (field == nullptr)
    throw std::out_of_range("no parameter " + std::string(path));
  return config::value_of(*field, image_, element);
}

bool Values::on(std::string_view path) const {
  const double value = (*this)(path);
  return path.starts_with("aec") ? value == 1 : value != 0;
}

std::vector<double> Values::heard_response(std::string_view section) const {
  return on(fmt::format("{}.enable", section)) ? half_response(section) : std::vector<double>{1.0};
}

std::vector<double> Values::half_response(std::string_view section) const {
  const std::string prefix(section);
  const int32_t half = std::min(int32_t((*this)(prefix + ".half_taps")), EQ_MAX_HALF_TAPS);
  const Field &coef = *find_field(prefix + ".coef");
  if (half < 1)
    return {1.0};
  std::vector<double> taps;
  for (int32_t i = 0; i < half; ++i)
    taps.push_back(config::value_of(coef, image_, i));
  return taps;
}

} // namespace qv::tool::para
