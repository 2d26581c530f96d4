/// @file history.h  Every evaluation of a search, kept so that it can be taken up again.
#pragma once

#include <fstream>
#include <map>
#include <string>

#include "config/fields.h"
#include "tune/numbers.h"

namespace qv::tool::tune {

/// What an evaluation has found.
struct Measured {
  Numbers means;      ///< over the recordings
  std::string failed; ///< recording that could not be measured, and why; then there are no means
};

/// A file with a line of JSON per evaluation, written as soon as it is known. The search is deterministic: run again,
/// it asks for the same parameters, and finds here what it has measured before.
class History {
public:
  /// Takes up the file if there is one. A line that was cut short is dropped.
  /// @param search  what makes this search what it is: another one's file is refused
  /// @throws InputError when the file is not of this search, or cannot be written
  History(const std::string &path, const Json &search);

  const Measured *find(const config::Image &image) const; ///< null when it has not been measured
  void add(const config::Image &image, const Measured &measured);
  size_t taken_up() const { return taken_up_; } ///< evaluations that the file had

private:
  void take_up(const Json &entry, const std::string &place);
  size_t read(const Json &search); ///< returns the bytes of the whole lines

  std::string path_;
  std::ofstream file_;
  std::map<config::Image, Measured> known_;
  size_t taken_up_ = 0;
};

} // namespace qv::tool::tune
