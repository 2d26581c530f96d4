#include "inspect/diff.h"

#include <cmath>

#include <fmt/format.h>

#include "para/fir_design.h"
#include "para/keys.h"
#include "para/text_writer.h"

namespace qv::tool::inspect {

using namespace para;

namespace {

/// The frequency at which two equalisers differ most, and the responses of both there: as they are heard,
/// or, when both are off, as they are stored.
Difference response_difference(const Field &coef, const Values &a, const Values &b) {
  const std::string enable = fmt::format("{}.enable", coef.section);
  const bool heard = a.on(enable) || b.on(enable);
  const auto half_a = heard ? a.heard_response(coef.section) : a.half_response(coef.section);
  const auto half_b = heard ? b.heard_response(coef.section) : b.half_response(coef.section);
  constexpr int steps = 256;
  double worst_hz = 0, worst = -1, db_a = 0, db_b = 0;
  for (int k = 0; k <= steps; ++k) {
    const double hz = 0.5 * std::min(a.rate(), b.rate()) * k / steps;
    const double at_a = response_db(half_a, hz, a.rate()), at_b = response_db(half_b, hz, b.rate());
    if (std::abs(at_a - at_b) <= worst)
      continue;
    worst = std::abs(at_a - at_b);
    worst_hz = hz, db_a = at_a, db_b = at_b;
  }
  return {path_of(coef), plain(db_a, 1), plain(db_b, 1), fmt::format("dB at {:.0f} Hz", worst_hz),
          "response where the two differ most"};
}

Difference difference(const Field &field, const Image &a, const Image &b) {
  if (field.extent == config::Extent::taps)
    return response_difference(field, Values(a), Values(b));
  return {path_of(field), toml_value(field, a), toml_value(field, b), std::string(field.unit),
          std::string(field.meaning)};
}

bool same_values(const Field &field, const Image &a, const Image &b) {
  const int32_t rate_a = a[config::rate_word], rate_b = b[config::rate_word];
  if (field.count(rate_a) != field.count(rate_b))
    return false;
  for (int32_t i = 0; i < field.count(rate_a); ++i)
    if (config::value_of(field, a, i) != config::value_of(field, b, i))
      return false;
  return true;
}

/// Words that no field reads. One that a field of the other file reads counts when it holds anything.
void compare_raw(const Image &a, const Image &b, std::vector<Difference> &found) {
  const auto read_a = words_read(a), read_b = words_read(b);
  const auto is_field = [](const std::vector<bool> &read, size_t word) {
    return read[word] && int(word) != config::magic_word;
  };
  const auto text = [&](const Image &image, const std::vector<bool> &read, size_t word) {
    return is_field(read, word) ? "-" : std::to_string(image[word]);
  };
  const auto value = [&](const Image &image, const std::vector<bool> &read, size_t word) {
    return is_field(read, word) ? 0 : image[word];
  };
  for (size_t word = 0; word < a.size(); ++word)
    if (value(a, read_a, word) != value(b, read_b, word))
      found.push_back({fmt::format("{}.{}", raw_section, word), text(a, read_a, word), text(b, read_b, word), "",
                       "word that no field reads"});
}

} // namespace

std::vector<Difference> diff(const Image &a, const Image &b) {
  std::vector<Difference> found;
  const int32_t rate_a = a[config::rate_word], rate_b = b[config::rate_word];
  if (rate_a != rate_b)
    found.push_back({"rate", std::to_string(rate_a), std::to_string(rate_b), "Hz", "sample rate"});
  if (rate_served(rate_a) && rate_served(rate_b))
    for (const Field &field : config::fields)
      if (!same_values(field, a, b))
        found.push_back(difference(field, a, b));
  compare_raw(a, b, found);
  return found;
}

} // namespace qv::tool::inspect
