#include "report/front_page.h"

#include <fmt/format.h>

#include "report/html.h"
#include "report/numbers.h"

namespace qv::tool::report {
namespace {

Json number_or_null(const measure::Value &value) { return value.known() ? Json(value.number()) : Json(); }

Json values(const measure::Results &results, const std::vector<measure::Measure> &columns) {
  Json row = Json::array();
  for (const measure::Measure &measure : columns)
    row.push_back(number_or_null(results.*measure.value));
  return row;
}

} // namespace

std::string front_page(const std::string &title, const std::vector<Entry> &entries, const std::string &other) {
  std::vector<measure::Measure> columns = shown_measures();
  std::erase_if(columns, [](const measure::Measure &measure) { return !measure.column; });
  Json heads = Json::array(), calls = Json::array();
  for (const measure::Measure &measure : columns)
    heads.push_back({{"name", measure.key},
                     {"title", measure.column},
                     {"meaning", measure.meaning},
                     {"decimals", measure.decimals},
                     {"better", measure.better}});
  for (const Entry &entry : entries) {
    Json call = {
        {"name", entry.name}, {"href", entry.href}, {"message", entry.message}, {"state", to_string(entry.state)}};
    if (!entry.href.empty())
      call["values"] = values(entry.results, columns);
    if (entry.other)
      call["other"] = values(*entry.other, columns);
    calls.push_back(call);
  }
  const Json data = {{"columns", heads},
                     {"calls", calls},
                     {"other", other},
                     {"made", fmt::format("Made by qvvoice {}", QV_VOICE_Version())}};
  return fill("front.html", {{"title", escape(title)}, {"data", script_json(data)}});
}

} // namespace qv::tool::report
