#include "process/summary.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include <fmt/format.h>

#include "audio/level.h"
#include "call/stages.h"

namespace qv::tool::process {
namespace {

using Json = nlohmann::ordered_json;

Json levels(const std::string &role, const std::string &name, const LevelMeter &level) {
  return {{"role", role},
          {"file", name},
          {"level_dbfs", std::isfinite(level.dbfs()) ? Json(level.dbfs()) : Json(nullptr)},
          {"clipped_samples", level.clipped()}};
}

Json path_in_effect(const std::vector<Stage> &stages, int latency, const Setup &setup) {
  Json switches;
  for (const Stage &stage : stages)
    switches[std::string(stage.name)] = stage.on;
  return {{"stages", switches}, {"latency_samples", latency}, {"latency_ms", 1e3 * latency / setup.rate}};
}

Json input_levels(const Inputs &inputs) {
  Json all = Json::array();
  for (const Input *input : inputs.given()) {
    Json one = levels(input->role(), input->name(), input->level());
    one["channel"] = std::max(input->source().channel, 1);
    one["file_rate_hz"] = input->file_rate();
    one["seconds"] = double(input->level().count()) / inputs.rate;
    all.push_back(one);
  }
  return all;
}

Json output_levels(const Results &results) {
  Json all = Json::array();
  for (const auto *result : {&results.sent, &results.played})
    if (*result)
      all.push_back(levels((*result)->role(), (*result)->path(), (*result)->level()));
  return all;
}

/// "noise reducer, echo canceller (...) on; equaliser off"
std::string stages_text(const Json &stages) {
  std::string on, off;
  for (const auto &[name, runs] : stages.items()) {
    std::string &list = runs.get<bool>() ? on : off;
    list += (list.empty() ? "" : ", ") + name;
  }
  std::replace(on.begin(), on.end(), '_', ' ');
  std::replace(off.begin(), off.end(), '_', ' ');
  return fmt::format("on: {}; off: {}", on.empty() ? "nothing" : on, off.empty() ? "nothing" : off);
}

std::string level_text(const Json &level) {
  return level.is_null() ? "silence" : fmt::format("{:.1f} dBFS", level.get<double>());
}

} // namespace

Json summarise(const Options &options, const Setup &setup, const Inputs &inputs, const Results &results,
               const Account &account) {
  const double seconds = double(account.frames) * setup.frame_len / setup.rate;
  Json summary = {{"library", QV_VOICE_Version()},
                  {"rate_hz", setup.rate},
                  {"frame_ms", options.frame_ms},
                  {"frame_samples", setup.frame_len},
                  {"parameters", setup.para_source},
                  {"frames", account.frames},
                  {"seconds", seconds},
                  {"times_real_time", seconds / account.busy_seconds},
                  {"worst_frame_ms", 1e3 * account.worst_seconds},
                  {"compensated", options.compensate}};
  if (inputs.far)
    summary["receive"] = path_in_effect(rx_stages(setup), account.latency.rx, setup);
  if (inputs.mic)
    summary["transmit"] = path_in_effect(tx_stages(setup), account.latency.tx, setup);
  summary["inputs"] = input_levels(inputs);
  summary["outputs"] = output_levels(results);
  if (results.trace)
    summary["trace"] = results.trace->path();
  summary["notes"] = inputs.notes();
  summary["hints"] = account.hints;
  return summary;
}

std::string as_text(const Json &summary) {
  std::string text;
  const auto at_end = std::back_inserter(text);
  const auto number = [&](const char *key) { return summary[key].get<double>(); };
  fmt::format_to(at_end, "{:<12}{} frames of {} ms ({} samples), {:.2f} s at {} Hz\n", "processed", number("frames"),
                 number("frame_ms"), number("frame_samples"), number("seconds"), number("rate_hz"));
  fmt::format_to(at_end, "{:<12}{:.0f} times real time, worst frame {:.3f} ms\n", "speed", number("times_real_time"),
                 number("worst_frame_ms"));
  fmt::format_to(at_end, "{:<12}{}\n", "parameters", summary["parameters"].get<std::string>());
  for (const char *path : {"receive", "transmit"})
    if (summary.contains(path))
      fmt::format_to(at_end, "{:<12}{}\n{:<12}latency {} samples ({:.1f} ms){}\n", path,
                     stages_text(summary[path]["stages"]), "", summary[path]["latency_samples"].get<int>(),
                     summary[path]["latency_ms"].get<double>(),
                     summary["compensated"].get<bool>() ? ", taken out of the result" : "");
  for (const char *side : {"inputs", "outputs"})
    for (const Json &signal : summary[side])
      fmt::format_to(at_end, "{:<12}{:>11}, {} clipped samples, {}\n", signal["role"].get<std::string>(),
                     level_text(signal["level_dbfs"]), signal["clipped_samples"].get<size_t>(),
                     signal["file"].get<std::string>());
  if (summary.contains("trace"))
    fmt::format_to(at_end, "{:<12}{}\n", "trace", summary["trace"].get<std::string>());
  for (const auto &[kind, label] : {std::pair("notes", "note"), {"hints", "hint"}})
    for (const Json &line : summary[kind])
      fmt::format_to(at_end, "{:<12}{}\n", label, line.get<std::string>());
  return text;
}

} // namespace qv::tool::process
