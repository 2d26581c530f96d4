/// @file plan.h  What a search may change and what it is after.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "config/fields.h"
#include "tune/numbers.h"

namespace qv::tool::tune {

/// A place in the search space: one number from 0 to 1 per move.
using Point = std::vector<double>;

/// One number that the search moves; it may stand for several elements of a field.
struct Move {
  const config::Field *field;
  size_t first, last;             ///< elements of the field, last included
  double least, greatest;         ///< in the field's unit, or times `factor_of`
  bool log;                       ///< equal steps are equal ratios
  const config::Field *factor_of; ///< field that the number multiplies; null: none
  std::optional<double> start;    ///< where the search begins; nothing: where the parameters are
};

/// A limit on the mean of a measure over the recordings.
struct Want {
  const measure::Measure *measure;
  double limit;
  bool at_least; ///< else at most
  double point;  ///< unit of the measure that costs as much as a point of any other
  double in(const std::vector<double> &means) const { return means[size_t(measure - measure::measures().data())]; }
  double missed(double mean) const { return (at_least ? limit - mean : mean - limit) / point; } ///< points
};

struct Plan {
  std::string title;
  std::string about;                                         ///< what the parameters are for; begins their file
  std::vector<std::pair<const config::Field *, double>> set; ///< every element, before the search
  std::vector<Move> moves;
  std::vector<Want> wants;

  /// Points by which the wants are missed, summed. A want that is more than met takes a little off, so that the search
  /// goes on where nothing is missed. What has no number counts nothing.
  double cost(const Numbers &means) const;

  /// @throws InputError when a measure that is wanted has no number
  void require(const Numbers &means) const;

  /// @param image  with what the plan sets
  /// @throws InputError when a field that is set or moved is part of something that is off
  void require_words(const config::Image &image) const;

  config::Image with_set(config::Image image) const; ///< with what the plan sets
  bool sets(const config::Field &field) const;
  Point start(const config::Image &image) const;
  config::Image moved(config::Image image, const Point &point) const;
  Point place_of(const config::Image &image) const; ///< nearest place; what lies outside the bounds comes to them
};

/// Reads a plan; docs/tuning.md has its keys.
/// @param path  for messages
/// @param rate  Hz, for the elements of fields
/// @throws InputError with file, line, key, what was found and what would be right
Plan parse_plan(std::string_view text, const std::string &path, int rate);

struct BuiltIn {
  std::string_view name;
  std::string_view text;
};

/// By name. The array is generated from plans/*.toml.
std::span<const BuiltIn> built_in();

/// A plan that is built in, or a file. @throws InputError
Plan read_plan(const std::string &name, int rate);

} // namespace qv::tool::tune
