#include "report/numbers.h"

#include <algorithm>
#include <functional>
#include <iterator>

namespace qv::tool::report {
namespace {

using Json = nlohmann::ordered_json;

Json number_or_null(const measure::Value &value) { return value.known() ? Json(value.number()) : Json(); }

} // namespace

std::vector<measure::Measure> shown_measures() {
  std::vector<measure::Measure> shown;
  std::ranges::copy_if(measure::measures(), std::back_inserter(shown), std::not_fn(measure::is_speed));
  return shown;
}

Json numbers(const measure::Results &results, const measure::Results *other) {
  Json rows = Json::array();
  for (const measure::Measure &measure : shown_measures()) {
    const measure::Value &value = results.*measure.value;
    Json row = {{"name", measure.key},           {"unit", measure.unit},       {"decimals", measure.decimals},
                {"better", measure.better},      {"meaning", measure.meaning}, {"headline", measure.column != nullptr},
                {"value", number_or_null(value)}};
    if (!value.known())
      row["gap"] = text_of(value.gap());
    if (other)
      row["other"] = number_or_null(other->*measure.value);
    rows.push_back(row);
  }
  return rows;
}

} // namespace qv::tool::report
