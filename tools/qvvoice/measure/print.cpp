#include "measure/print.h"

#include <algorithm>

#include <fmt/format.h>

namespace qv::tool::measure {
namespace {

Json number_or_null(double number) { return std::isfinite(number) ? Json(number) : Json(); }

Json decibels(double power) {
  const auto db = to_db(power);
  return db ? Json(*db) : Json();
}

constexpr const char *talk_names[talk_classes] = {"silence", "far", "near", "both", "broken"};

Json talk_seconds(const std::optional<std::vector<Talk>> &talk) {
  if (!talk)
    return {};
  Json seconds;
  for (const Talk one : {Talk::silence, Talk::far, Talk::near, Talk::both, Talk::broken})
    seconds[talk_names[size_t(one)]] = double(std::ranges::count(*talk, one)) * frame_seconds;
  return seconds;
}

Json quarters_json(const std::vector<Quarter> &quarters) {
  Json rows = Json::array();
  for (const Quarter &quarter : quarters)
    rows.push_back({{"time_s", quarter.time},
                    {"talk", quarter.talk ? Json(talk_names[size_t(*quarter.talk)]) : Json()},
                    {"mic_dbfs", decibels(quarter.mic_power)},
                    {"out_dbfs", decibels(quarter.out_power)},
                    {"erle_db", quarter.erle ? number_or_null(*quarter.erle) : Json()}});
  return rows;
}

Json value_or_null(const Value &value) { return value.known() ? Json(value.number()) : Json(); }

Json recoveries_json(const std::vector<Recovery> &recoveries) {
  Json rows = Json::array();
  for (const Recovery &one : recoveries) {
    rows.push_back({{"time_s", one.time},
                    {"kind", one.kind},
                    {"delay_jump_ms", one.jump},
                    {"recovery_s", value_or_null(one.seconds)},
                    {"erle_db", value_or_null(one.erle)}});
    if (!one.seconds.known())
      rows.back()["gap"] = text_of(one.seconds.gap());
  }
  return rows;
}

/// "low" when the noise is so far below the talker that what is left of the echo can be heard by itself, "high",
/// null when not known.
Json noise_tag(const Results &results) {
  constexpr double low_noise_db = 20;
  if (!results.noise_snr_db.known())
    return {};
  return results.noise_snr_db.number() >= low_noise_db ? "low" : "high";
}

std::string label(const Json &recording) {
  const std::string name = recording["name"];
  return recording["frame_ms"].is_null() ? name : fmt::format("{} {} ms", name, int(recording["frame_ms"]));
}

/// A number as the measure prints it, or a sign for why there is none.
std::string cell(const Json &recording, const Measure &measure, bool sign = false) {
  const Json &value = recording["measures"][measure.key];
  if (value.is_number())
    return sign ? fmt::format("{:+.{}f}", double(value), measure.decimals)
                : fmt::format("{:.{}f}", double(value), measure.decimals);
  const std::string gap = recording.value("gaps", Json::object()).value(measure.key, "");
  return gap == text_of(Gap::never) ? "never" : gap == text_of(Gap::unknown) ? "?" : "-";
}

constexpr const char *legend = "- nothing in the recording shows it   ? the truth is not known   never: not reached\n";

/// Neither run can know it for want of the truth.
bool needs_truth(const Json &recording, const Measure &measure) {
  return cell(recording, measure) == "?" &&
         (!recording.contains("against") || cell(recording["against"], measure) == "?");
}

std::string one_text(const Json &recording) {
  const bool compared = recording.contains("against");
  std::string text =
      fmt::format("{}, {} Hz: {}\n", label(recording), int(recording["rate"]), std::string(recording["source"]));
  if (compared)
    text += fmt::format("against: {}\n", std::string(recording["against"]["source"]));
  size_t unknown = 0;
  for (const Measure &measure : measures()) {
    if (needs_truth(recording, measure)) {
      ++unknown;
      continue;
    }
    text += fmt::format("{:31}{:>10}", measure.key, cell(recording, measure));
    if (compared)
      text += fmt::format("{:>10}{:>10}", cell(recording["against"], measure),
                          cell({{"measures", recording["difference"]}}, measure, true));
    text += fmt::format(" {:5} {}\n", measure.unit, measure.meaning);
  }
  text += "- nothing in the recording shows it   never: not reached\n";
  if (unknown > 0)
    text +=
        fmt::format("{} more measures, such as echo reduction while the far end talks alone, need to know who talks "
                    "when:\na scene.toml with [truth] and near.wav beside mic.wav, as qvvoice scene makes them "
                    "(docs/measures.md)\n",
                    unknown);
  return text;
}

/// Of the values that are there. @param value  of a recording's measure, null when there is none
template <class ValueOf> Json mean_over(const std::vector<const Json *> &recordings, const ValueOf &value) {
  Json mean = Json::object();
  for (const Measure &measure : measures()) {
    double sum = 0;
    int count = 0;
    for (const Json *recording : recordings)
      if (const Json one = value(*recording, measure.key); one.is_number()) {
        sum += double(one);
        ++count;
      }
    mean[measure.key] = count > 0 ? Json(sum / count) : Json();
  }
  return mean;
}

using Row = std::vector<std::string>;

/// Left-aligned first column, the others right-aligned.
std::string aligned(const std::vector<Row> &rows) {
  std::string text;
  std::vector<size_t> widths(rows.at(0).size());
  for (const Row &row : rows)
    for (size_t i = 0; i < row.size(); ++i)
      widths[i] = std::max(widths[i], row[i].size());
  for (const Row &row : rows) {
    for (size_t i = 0; i < row.size(); ++i)
      text += i == 0 ? fmt::format("{:{}}", row[i], widths[i]) : fmt::format("  {:>{}}", row[i], widths[i]);
    text += '\n';
  }
  return text;
}

/// The recordings of each rate and frame length, in order of appearance.
std::vector<std::vector<const Json *>> by_layout(const Json &recordings) {
  std::vector<std::vector<const Json *>> layouts;
  for (const Json &recording : recordings) {
    const auto same = [&](const auto &layout) {
      return (*layout[0])["rate"] == recording["rate"] && (*layout[0])["frame_ms"] == recording["frame_ms"];
    };
    const auto found = std::ranges::find_if(layouts, same);
    (found == layouts.end() ? layouts.emplace_back() : *found).push_back(&recording);
  }
  return layouts;
}

/// The recordings of low and of high noise, where there are both.
std::vector<std::pair<std::string, std::vector<const Json *>>> by_noise(const std::vector<const Json *> &recordings) {
  std::vector<std::pair<std::string, std::vector<const Json *>>> groups = {{"low", {}}, {"high", {}}};
  for (auto &[tag, some] : groups)
    std::ranges::copy_if(recordings, std::back_inserter(some),
                         [&](const Json *recording) { return recording->value("noise", Json()) == tag; });
  const bool both = std::ranges::none_of(groups, [](const auto &group) { return group.second.empty(); });
  return both ? groups : decltype(groups)();
}

std::string layout_label(const Json &recording) {
  return fmt::format("mean at {} kHz{}", int(recording["rate"]) / 1000,
                     recording["frame_ms"].is_null() ? "" : fmt::format(", {} ms", int(recording["frame_ms"])));
}

/// @param part  null, or the member of a recording that holds the values: "difference"
std::string set_table(const Json &set, const char *part, const std::vector<Column> &columns) {
  std::vector<Row> rows = {{"recording"}};
  for (const Column &column : columns)
    rows[0].push_back(column.heading);
  for (const Json &recording : set["recordings"]) {
    if (part && !recording.contains(part))
      continue;
    rows.push_back({label(recording)});
    const Json &run = part ? Json{{"measures", recording[part]}} : recording;
    for (const Column &column : columns)
      rows.back().push_back(cell(run, *column.measure, part));
  }
  const auto add_mean = [&](const std::vector<const Json *> &some, const std::string &name) {
    const Json mean = {{"measures", mean_over(some, [&](const Json &recording, const char *key) {
                          return recording.value(part ? part : "measures", Json::object()).value(key, Json());
                        })}};
    rows.push_back({name});
    for (const Column &column : columns)
      rows.back().push_back(cell(mean, *column.measure, part));
  };
  for (const auto &layout : by_layout(set["recordings"])) {
    add_mean(layout, layout_label(*layout[0]));
    for (const auto &[tag, some] : by_noise(layout))
      add_mean(some, fmt::format("  {} with {} noise", some.size(), tag));
  }
  return aligned(rows);
}

void csv_line(std::string &text, const std::string &name, const Json &run) {
  text +=
      fmt::format("\"{}\",{},{},\"{}\"", name, int(run["rate"]),
                  run["frame_ms"].is_null() ? "" : std::to_string(int(run["frame_ms"])), std::string(run["source"]));
  for (const Measure &measure : measures()) {
    const Json &value = run["measures"][measure.key];
    text += value.is_number() ? fmt::format(",{}", double(value)) : ",";
  }
  text += '\n';
}

} // namespace

Json to_json(const Subject &subject, const Output &output, const Results &results) {
  Json values = Json::object(), gaps = Json::object();
  for (const Measure &measure : measures()) {
    const Value &value = results.*measure.value;
    values[measure.key] = value_or_null(value);
    if (!value.known())
      gaps[measure.key] = text_of(value.gap());
  }
  return {{"name", subject.name},
          {"rate", subject.rate},
          {"frame_ms", output.frame_len > 0 ? Json(1000 * output.frame_len / subject.rate) : Json()},
          {"source", output.source},
          {"agc_gain_known", !output.trace.empty()},
          {"latency_samples", output.latency},
          {"noise", noise_tag(results)},
          {"talk_seconds", talk_seconds(talk_of(subject))},
          {"measures", values},
          {"gaps", gaps},
          {"recoveries", recoveries_json(results.recoveries)},
          {"quarters", quarters_json(results.quarters)}};
}

Json as_set(std::vector<Json> recordings) { return {{"recordings", std::move(recordings)}, {"failed", Json::array()}}; }

Json means(const Json &recordings) {
  const auto of = [](const std::vector<const Json *> &some) -> Json {
    return {{"recordings", some.size()}, {"measures", mean_over(some, [](const Json &recording, const char *key) {
                                            return recording["measures"][key];
                                          })}};
  };
  Json all = Json::array();
  for (const auto &layout : by_layout(recordings)) {
    Json row = {{"rate", (*layout[0])["rate"]}, {"frame_ms", (*layout[0])["frame_ms"]}};
    row.update(of(layout));
    for (const auto &[tag, some] : by_noise(layout))
      row[tag + "_noise"] = of(some);
    all.push_back(std::move(row));
  }
  return all;
}

std::vector<std::string> compare(Json &set, const Json &other) {
  std::vector<std::string> missing;
  for (Json &recording : set["recordings"]) {
    const auto same = [&](const Json &one) {
      const Json &a = one["frame_ms"], &b = recording["frame_ms"];
      return one["name"] == recording["name"] && (a == b || a.is_null() || b.is_null());
    };
    const auto found = std::ranges::find_if(other["recordings"], same);
    if (found == other["recordings"].end()) {
      missing.push_back(label(recording));
      continue;
    }
    recording["against"] = *found;
    recording["against"].erase("quarters");
    for (const auto &[key, value] : recording["measures"].items()) {
      const Json there = (*found)["measures"].value(key, Json());
      const bool both = value.is_number() && there.is_number();
      recording["difference"][key] = both ? Json(double(value) - double(there)) : Json();
    }
  }
  return missing;
}

std::string measure_list() {
  std::string text = fmt::format("{:31} {:12} {:5} {}\n", "measure", "column", "unit", "meaning");
  for (const Measure &measure : measures())
    text += fmt::format("{:31} {:12} {:5} {}\n", measure.key, measure.column ? measure.column : "", measure.unit,
                        measure.meaning);
  return text;
}

std::vector<Column> usual_columns() {
  std::vector<Column> columns;
  for (const Measure &measure : measures())
    if (measure.column)
      columns.push_back({&measure, measure.column});
  return columns;
}

std::string as_text(const Json &set, const std::vector<Column> &columns) {
  const Json &recordings = set["recordings"];
  std::string text;
  if (recordings.size() == 1 && set["failed"].empty())
    return one_text(recordings[0]);
  if (!recordings.empty())
    text += set_table(set, nullptr, columns) + legend;
  if (std::ranges::any_of(recordings, [](const Json &one) { return one.contains("difference"); }))
    text += "\nthis run minus the other\n" + set_table(set, "difference", columns);
  for (const Json &one : set["failed"])
    text += fmt::format("FAILED {}: {}\n", std::string(one["name"]), std::string(one["message"]));
  return text;
}

std::string as_csv(const Json &set) {
  std::string text = "name,rate,frame_ms,source";
  for (const Measure &measure : measures())
    text += fmt::format(",{}", measure.key);
  text += '\n';
  for (const Json &recording : set["recordings"]) {
    csv_line(text, recording["name"], recording);
    if (recording.contains("against"))
      csv_line(text, recording["name"], recording["against"]);
  }
  return text;
}

} // namespace qv::tool::measure
