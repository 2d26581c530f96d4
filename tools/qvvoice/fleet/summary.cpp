#include "fleet/summary.h"

#include <fmt/format.h>

#include "measure/results.h"

namespace qv::tool::fleet {

void Means::add(const Json &result) {
  Layout &layout = layouts_[{int(result["rate"]), int(result["frame_ms"])}];
  ++layout.results;
  for (const auto &[key, value] : result["measures"].items()) {
    auto &[sum, count] = layout.sums[key];
    sum += double(value);
    ++count;
  }
}

Json Means::json() const {
  Json all = Json::array();
  for (const auto &[form, layout] : layouts_) {
    Json means = Json::object();
    for (const measure::Measure &measure : measure::measures())
      if (const auto found = layout.sums.find(measure.key); found != layout.sums.end())
        means[measure.key] = found->second.first / double(found->second.second);
    all.push_back({{"rate", form.first}, {"frame_ms", form.second}, {"results", layout.results}, {"measures", means}});
  }
  return all;
}

Json as_json(const Merged &merged, const Means &means) {
  Json failed = Json::array();
  for (const Failed &one : merged.failed)
    failed.push_back({{"name", one.name}, {"message", one.message}});
  return {{"path", merged.path},
          {"results", merged.results},
          {"failed", failed},
          {"hours", merged.seconds / 3600},
          {"core_hours", merged.cpu_seconds / 3600},
          {"means", means.json()}};
}

std::string as_text(const Merged &merged, const Means &means) {
  std::string text;
  const Json layouts = means.json();
  for (const Json &layout : layouts)
    text += fmt::format("{} results at {} Hz, {} ms: means\n", size_t(layout["results"]), int(layout["rate"]),
                        int(layout["frame_ms"]));
  for (const measure::Measure &measure : measure::measures()) {
    std::string row;
    for (const Json &layout : layouts)
      row += layout["measures"].contains(measure.key)
                 ? fmt::format("{:>12.{}f}", double(layout["measures"][measure.key]), measure.decimals)
                 : fmt::format("{:>12}", "-");
    if (row.find_first_not_of(" -") != row.npos)
      text += fmt::format("{:31}{} {:5} {}\n", measure.key, row, measure.unit, measure.meaning);
  }
  for (const Failed &one : merged.failed)
    text += fmt::format("FAILED {}: {}\n", one.name, one.message);
  return text + fmt::format("{}: {:.2f} h of sound in {:.3f} core hours\n", merged.path, merged.seconds / 3600,
                            merged.cpu_seconds / 3600);
}

} // namespace qv::tool::fleet
