/// @file check.h  One question about a recording, and its answer.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace qv::tool::diagnose {

enum class State {
  ok,         ///< measured, within the limit
  unmeasured, ///< could not be measured
  note,       ///< worth knowing
  wrong,      ///< explains why echo is left or speech is lost
};

/// "ok", "unmeasured", "note", "wrong".
std::string to_string(State state);

using Numbers = nlohmann::ordered_json;

struct Check {
  std::string name;  ///< "reach"
  std::string title; ///< "Reach of the library"
  State state = State::unmeasured;
  std::string found = {};              ///< what was measured, or why it could not be
  std::string limit = {};              ///< what would be right
  std::string next = {};               ///< what to do; empty while all is well
  Numbers numbers = Numbers::object(); ///< by name; null: not measured
};

struct Diagnosis {
  std::string verdict;
  bool sure; ///< false: the verdict names an effect without its cause, or that something may be wrong
  State state;
  std::vector<Check> checks;
};

} // namespace qv::tool::diagnose
