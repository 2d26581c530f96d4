#include "fleet/result.h"

namespace qv::tool::fleet {

Json result_of(const measure::Known &known, const std::map<std::string, std::string> &tags, const Setup &setup) {
  const measure::Subject &subject = known.subject;
  const measure::Output output = run_library(subject, setup);
  const measure::Results results = measure::measure(known, output);
  const Json full = measure::to_json(subject, output, results);
  Json kept = {{"name", subject.name},
               {"rate", subject.rate},
               {"frame_ms", full["frame_ms"]},
               {"seconds", double(subject.mic.size()) / subject.rate},
               {"tags", tags},
               {"noise", full["noise"]},
               {"measures", Json::object()},
               {"never", Json::array()}};
  for (const measure::Measure &measure : measure::measures()) {
    const measure::Value &value = results.*measure.value;
    if (value.known() && !is_speed(measure))
      kept["measures"][measure.key] = value.number();
    else if (!value.known() && value.gap() == measure::Gap::never)
      kept["never"].push_back(measure.key);
  }
  return kept;
}

} // namespace qv::tool::fleet
