#include "call/trace_table.h"

#include <iterator>

#include <fmt/format.h>

namespace qv::tool {

std::string trace_names() {
  std::string line = "time_s";
  for_each_field({}, [&](const char *name, auto) { fmt::format_to(std::back_inserter(line), ",{}", name); });
  return line + '\n';
}

std::string trace_line(const QvVoiceTrace &trace, double time) {
  std::string line = fmt::format("{:.3f}", time);
  for_each_field(trace, [&](const char *, auto value) { fmt::format_to(std::back_inserter(line), ",{}", value); });
  return line + '\n';
}

} // namespace qv::tool
