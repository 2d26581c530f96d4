#include "process/summary.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numeric>

#include <fmt/format.h>

#include "audio/level.h"
#include "call/stages.h"

namespace qv::tool::process {
namespace {

using Json = nlohmann::ordered_json;

Json levels(const std::string &role, const std::string &path, const Samples &samples) {
  const double level = level_dbfs(samples);
  return {{"role", role},
          {"file", path},
          {"level_dbfs", std::isfinite(level) ? Json(level) : Json(nullptr)},
          {"clipped_samples", count_clipped(samples)}};
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
    Json one = levels(input->role, input->source.path, input->samples());
    one["channel"] = std::max(input->source.channel, 1);
    one["file_rate_hz"] = input->recording.file_rate;
    one["seconds"] = input->recording.audio.seconds();
    all.push_back(one);
  }
  return all;
}

Json output_levels(const Options &options, const Run &run) {
  Json all = Json::array();
  if (options.out)
    all.push_back(levels("out", *options.out, run.sent));
  if (options.played)
    all.push_back(levels("played", *options.played, run.played));
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

Json summarise(const Options &options, const Setup &setup, const Inputs &inputs, const Run &run) {
  const double busy = std::accumulate(run.frame_seconds.begin(), run.frame_seconds.end(), 0.0);
  const double worst = *std::max_element(run.frame_seconds.begin(), run.frame_seconds.end());
  const double seconds = double(run.frame_seconds.size()) * setup.frame_len / setup.rate;
  Json summary = {{"library", QV_VOICE_Version()},
                  {"rate_hz", setup.rate},
                  {"frame_ms", options.frame_ms},
                  {"frame_samples", setup.frame_len},
                  {"parameters", setup.para_source},
                  {"frames", run.frame_seconds.size()},
                  {"seconds", seconds},
                  {"times_real_time", seconds / busy},
                  {"worst_frame_ms", 1e3 * worst},
                  {"compensated", options.compensate}};
  if (inputs.far)
    summary["receive"] = path_in_effect(rx_stages(setup), run.latency.rx, setup);
  if (inputs.mic)
    summary["transmit"] = path_in_effect(tx_stages(setup), run.latency.tx, setup);
  summary["inputs"] = input_levels(inputs);
  summary["outputs"] = output_levels(options, run);
  if (options.trace)
    summary["trace"] = *options.trace;
  summary["notes"] = inputs.notes;
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
  for (const Json &note : summary["notes"])
    fmt::format_to(at_end, "{:<12}{}\n", "note", note.get<std::string>());
  return text;
}

} // namespace qv::tool::process
