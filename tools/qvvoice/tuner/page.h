/// @file page.h  The page that tunes by ear, with what it opens.
#pragma once

#include <optional>
#include <string>

#include "measure/subject.h"

namespace qv::tool::tuner {

/// What the page opens with, in place of its own call and preset.
struct Given {
  std::optional<measure::Subject> call;
  std::optional<Setup> setup;
};

/// The page with it, in one file. A call of more than ten minutes is cut there.
/// @throws InputError in a build without the page
std::string page_with(const Given &given);

} // namespace qv::tool::tuner
