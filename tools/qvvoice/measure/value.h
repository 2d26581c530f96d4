/// @file value.h  A number that can be missing, and why.
#pragma once

#include <cmath>
#include <limits>
#include <optional>

namespace qv::tool::measure {

/// Why there is no number.
enum class Gap {
  unknown, ///< the truth that it needs is not known
  absent,  ///< nothing in the recording shows it
  never,   ///< it was waited for and did not come
};

const char *text_of(Gap gap);

/// A number, or the reason why there is none.
class Value {
public:
  Value() = default;
  Value(double number) : number_(number), gap_(Gap::absent) {}
  Value(Gap gap) : gap_(gap) {}
  Value(std::optional<double> number) : Value(number ? Value(*number) : Value(Gap::absent)) {}

  bool known() const { return std::isfinite(number_); }
  double number() const { return number_; } ///< NaN unless known
  Gap gap() const { return gap_; }          ///< unless known

private:
  double number_ = std::numeric_limits<double>::quiet_NaN();
  Gap gap_ = Gap::unknown;
};

} // namespace qv::tool::measure
