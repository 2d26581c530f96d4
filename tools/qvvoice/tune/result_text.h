/// @file result_text.h  What a search has found, for people and for machines.
#pragma once

#include <string>

#include "tune/tuner.h"

namespace qv::tool::tune {

/// Before and after on one set of recordings.
struct Judged {
  std::string part; ///< "tuned on", "held back"
  std::vector<std::string> names;
  std::vector<Numbers> before, after; ///< [recordings]
};

/// How the parameters of a result are written.
struct Writing {
  std::string name;
  int frame_ms;
  std::string base;   ///< preset that the text builds on; empty: the defaults
  config::Image from; ///< the words of that
};

/// The parameters as text: what they are for and what they reach, what differs from the base, a comment on each changed
/// field with what it was and what it buys.
/// @param reached  means, of the recordings that `where` names
std::string parameter_text(const Plan &plan, const Result &result, const Writing &writing, const Numbers &reached,
                           const std::string &where);

/// {"plan", "evaluations", "wants", "parts": [{"part", "before", "after", "recordings"}], "fields", "course"};
/// recordings and fields come with the worst first, numbers that are not there as null.
Json result_json(const Plan &plan, const Result &result, const std::vector<Judged> &parts);

/// The same as tables.
std::string result_text(const Json &result);

/// Whether the means meet every want. @param numbers  means
bool all_met(const Plan &plan, const Numbers &numbers);

} // namespace qv::tool::tune
