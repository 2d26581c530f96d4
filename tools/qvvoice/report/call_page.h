/// @file call_page.h  The page of one call.
#pragma once

#include <optional>
#include <string>

#include "diagnose/check.h"
#include "report/lanes.h"

namespace qv::tool::report {

/// One call, run and measured.
struct CallReport {
  std::string name; ///< heading
  Setup setup;
  measure::Subject subject;
  measure::Output output;
  measure::Results results;
  std::vector<DelayPoint> delays; ///< found in the recording
  diagnose::Diagnosis diagnosis;

  struct Other {
    std::string name; ///< heading of its column
    measure::Output output;
    measure::Results results;
  };
  std::optional<Other> other; ///< another run, put beside it
};

/// Runs the library over the recording, measures and diagnoses.
CallReport examine(std::string name, measure::Subject subject, const Setup &setup);

struct Link {
  std::string title, href;
};

struct Links {
  std::optional<Link> front, previous, next;
};

/// A self-contained HTML file; the same bytes for the same call. What depends on the machine's speed is left out.
std::string call_page(const CallReport &call, const Links &links);

} // namespace qv::tool::report
