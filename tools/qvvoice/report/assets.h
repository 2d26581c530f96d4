/// @file assets.h  The embedded files that pages are made of.
#pragma once

#include <span>
#include <string_view>

namespace qv::tool::report {

struct Asset {
  std::string_view name, content;
};

/// The files of report/page/, and of the charting library dygraph.min.js, dygraph.min.css and copyright,
/// its licence.
std::span<const Asset> assets();

} // namespace qv::tool::report
