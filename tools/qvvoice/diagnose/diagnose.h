/// @file diagnose.h  Why there is still an echo.
#pragma once

#include <string>

#include "diagnose/check.h"
#include "diagnose/evidence.h"

namespace qv::tool::diagnose {

/// All checks in order; the verdict is the first that is wrong.
Diagnosis diagnose(const Evidence &evidence);

nlohmann::ordered_json to_json(const Diagnosis &diagnosis);

/// The verdict, then one paragraph per check. @param width  columns to wrap at
std::string to_text(const Diagnosis &diagnosis, size_t width);

} // namespace qv::tool::diagnose
