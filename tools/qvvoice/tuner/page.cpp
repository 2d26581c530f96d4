#include "tuner/page.h"

#include <algorithm>

#include "embedded/tuner_page.h"
#include "report/html.h"
#include "report/tuner_data.h"
#include "support/error.h"

namespace qv::tool::tuner {
namespace {

std::string sound(const std::vector<int16_t> &samples, int rate) {
  const size_t count = std::min(samples.size(), size_t(report::longest_part) * size_t(rate));
  return report::base64(report::flac({rate, {samples.begin(), samples.begin() + std::ptrdiff_t(count)}}));
}

} // namespace

std::string page_with(const Given &given) {
  if (embedded::tuner_page().empty())
    throw InputError("tuner: this build has no page; docs/building.md names the packages that make it");
  nlohmann::ordered_json data;
  if (given.call)
    data["call"] = {{"name", given.call->name},
                    {"mic", sound(given.call->mic, given.call->rate)},
                    {"ref", sound(given.call->ref, given.call->rate)}};
  if (given.setup)
    data["parameters"] = report::parameters_json(*given.setup);
  constexpr std::string_view mark = "\"given\": null";
  std::string text(embedded::tuner_page());
  return text.replace(text.find(mark), mark.size(), "\"given\": " + report::script_json(data));
}

} // namespace qv::tool::tuner
