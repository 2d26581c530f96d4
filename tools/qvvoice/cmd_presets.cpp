#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "para/presets.h"
#include "verbs.h"

namespace qv::tool {

namespace {

void list_presets(bool json) {
  auto rows = nlohmann::ordered_json::array();
  for (const para::Preset &preset : para::presets()) {
    rows.push_back({{"name", preset.name}, {"purpose", purpose(preset)}});
    if (!json)
      fmt::print("{:24} {}\n", preset.name, purpose(preset));
  }
  if (json)
    fmt::print("{}\n", rows.dump(2));
}

} // namespace

void add_presets(CLI::App &app) {
  CLI::App *command = app.add_subcommand("presets", "Lists the parameter files that are built in");
  command->footer("Example: qvvoice presets, then qvvoice para show balanced-16k-20ms");
  const auto json = std::make_shared<bool>(false);
  command->add_flag("--json", *json, "as JSON");
  command->callback([json] { list_presets(*json); });
}

} // namespace qv::tool
