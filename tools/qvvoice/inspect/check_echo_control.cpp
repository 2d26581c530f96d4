#include <string>
#include <vector>

#include "inspect/check_rules.h"

namespace qv::tool::inspect {

using namespace para;

namespace {

/// A furnished room of 50 m3 with 16 m2 of absorption rings for half a second (Sabine: 0.161 * 50 / 16): echo falls by
/// 60 dB in it, by 18 in 150 ms. A filter that ends there leaves the rest to the suppressor.
constexpr double short_tail_ms = 150;

/// Beside 20 dB that a filter takes off an echo of -20 dBFS: the rest lies 100 dB below full scale, where a rounded
/// 16-bit sample has its noise (-101).
constexpr double audible_depth_db = 60;

/// Fields of the other canceller that are not at their defaults.
std::vector<std::string> idle_fields(const Values &values) {
  const Image plain = config::default_image(values.rate());
  std::vector<std::string> paths;
  for (const Field &field : config::fields) {
    if (!field.section.starts_with("aec") || path_of(field) == "aec.enable")
      continue;
    for (int32_t i = 0; i < field.count(values.rate()); ++i)
      if (config::value_of(field, values.image(), i) != config::value_of(field, plain, i)) {
        paths.push_back(path_of(field));
        break;
      }
  }
  return paths;
}

} // namespace

void check_echo_control(const Values &values, Findings &findings) {
  if (!values.on("echo_control.enable"))
    return;
  SectionFindings out("echo_control", findings);
  if (!state_space_runs(values))
    return out.warning("enable", "true while aec.enable is off; no echo is cancelled, and the section has no effect");
  if (const auto idle = idle_fields(values); !idle.empty())
    out.note("enable",
             "beside this canceller {}{} no effect; a library that does not know it goes by what the file says there",
             idle.front(), idle.size() == 1 ? " has" : fmt::format(" and {} more of [aec] have", idle.size() - 1));
  if (const double tail = values("echo_control.tail_ms"); tail < short_tail_ms)
    out.warning("tail_ms", "{:g} ms end before a furnished room does; its late echo is left to the suppressor", tail);
  if (const double depth = values("echo_control.depth_db"); depth > audible_depth_db)
    out.warning("depth_db",
                "{:g} dB put the rest of the echo below the noise of 16-bit samples; more than {:g} dB only "
                "cost near-end speech",
                depth, audible_depth_db);
  if (values("echo_control.background") == 0)
    out.warning("background", "0; while only the far end talks the line sounds dead to it");
}

} // namespace qv::tool::inspect
