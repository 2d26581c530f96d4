/// @file words.h  The words of a parameter file, by the keys of its text form.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "config/fields.h"

namespace qv::tool::para {

using config::Field;
using config::Image;

/// "tx.agc.knee_low_db"
std::string path_of(const Field &field);

/// The field of a path, or null.
const Field *find_field(std::string_view path);

/// Which of the 500 words a field, the rate or the magic number takes; only word 0 has a meaning in a
/// file whose rate is not served.
std::vector<bool> words_read(const Image &image);

/// The step that is nearest to a value, with the fewest decimals that read back as the same step: 0.95,
/// not 0.949981689453125.
std::string shortest(const Field &field, double value);

/// A number as a person would write it: up to `decimals`, no trailing zeros.
std::string plain(double value, int decimals = 4);

/// The values of an image by path. Unknown paths are programming errors: std::out_of_range.
class Values {
public:
  explicit Values(const Image &image) : image_(image), rate_(image[config::rate_word]) {}

  int32_t rate() const { return rate_; }
  const Image &image() const { return image_; }
  double operator()(std::string_view path, int32_t element = 0) const;

  /// Whether the library takes the section's switch for on: the echo canceller and its parts act on
  /// exactly 1, the others on anything but 0.
  bool on(std::string_view path) const;

  /// The stored half of an equaliser as the filter takes it, the centre last; {1} when it passes.
  /// @param section  "tx.eq" or "rx.eq"
  std::vector<double> half_response(std::string_view section) const;

  /// The same of the equaliser as it is heard: {1} while it is off.
  std::vector<double> heard_response(std::string_view section) const;

private:
  const Image &image_;
  int32_t rate_;
};

} // namespace qv::tool::para
