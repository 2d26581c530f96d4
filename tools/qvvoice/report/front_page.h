/// @file front_page.h  The first page of a set.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "report/call_page.h"

namespace qv::tool::report {

/// What the front page keeps of a call.
struct Entry {
  std::string name, href; ///< href of its page; empty when it failed
  std::string message;    ///< why it failed; else its verdict
  diagnose::State state = diagnose::State::wrong;
  measure::Results results;
  std::optional<measure::Results> other; ///< of the run beside it
};

/// A table with a line per call.
/// @param other  name of the run beside; empty: none
std::string front_page(const std::string &title, const std::vector<Entry> &entries, const std::string &other);

} // namespace qv::tool::report
