#include "call/trace_table.h"

#include <iterator>

#include <fmt/format.h>

namespace qv::tool {

std::string trace_csv(const std::vector<QvVoiceTrace> &trace, double frame_seconds) {
  std::string csv = "time_s";
  const auto at_end = std::back_inserter(csv);
  for_each_field({}, [&](const char *name, auto) { fmt::format_to(at_end, ",{}", name); });
  csv += '\n';
  for (size_t frame = 0; frame < trace.size(); ++frame) {
    fmt::format_to(at_end, "{:.3f}", double(frame) * frame_seconds);
    for_each_field(trace[frame], [&](const char *, auto value) { fmt::format_to(at_end, ",{}", value); });
    csv += '\n';
  }
  return csv;
}

} // namespace qv::tool
