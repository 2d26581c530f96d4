// Questions about parameters: fields, presets, files, edits, checks.

#include <fmt/format.h>

#include "call/stages.h"
#include "engine.h"
#include "inspect/check.h"
#include "inspect/diff.h"
#include "inspect/level_curve.h"
#include "inspect/reference.h"
#include "para/bands.h"
#include "para/fir_design.h"
#include "para/para_file.h"
#include "para/presets.h"
#include "para/text_reader.h"
#include "para/text_writer.h"
#include "qvvoice/qvvoice.h"

namespace qv::web {
namespace {

using namespace tool;
using config::Field;
using config::Image;

Json words_json(const Image &image) {
  static Image kept;
  kept = image;
  return place_of<int16_t>("Int16Array", kept);
}

Json findings_json(const para::Findings &findings) {
  Json rows = Json::array();
  for (const para::Finding &finding : findings)
    rows.push_back({{"severity", name_of(finding.severity)},
                    {"line", finding.line},
                    {"key", finding.key},
                    {"message", finding.message}});
  return rows;
}

Json hello(const Json &) {
  Json presets = Json::array(), sections = Json::array();
  for (const para::Preset &preset : para::presets()) {
    const para::ReadText read = para::read_text(preset.text, {});
    presets.push_back({{"name", preset.name},
                       {"about", purpose(preset)},
                       {"rate", read.image[config::rate_word]},
                       {"frame_ms", read.frame_ms}});
  }
  for (const config::Section &section : config::sections)
    sections.push_back({{"name", section.name}, {"title", section.title}});
  return {{"version", QV_VOICE_Version()},
          {"presets", presets},
          {"default_family", para::default_family},
          {"sections", sections},
          {"fields", inspect::reference_json("")}};
}

Json file_json(const para::ParaFile &file) {
  return {{"words", words_json(file.image)}, {"name", file.name},     {"rate", file.image[config::rate_word]},
          {"frame_ms", file.frame_ms},       {"packed", file.packed}, {"findings", findings_json(file.log.findings())}};
}

Json preset(const Json &request) {
  const auto name = request.at("name").get<std::string>();
  const para::Preset *found = para::find_preset(name);
  return found ? file_json(para::parse(name, std::string(found->text), {})) : refused("there is no preset " + name);
}

Json read(const Json &request) {
  const auto name = request.at("name").get<std::string>();
  const auto content = array_at<char>(request.at("bytes"));
  const std::string bytes(content.begin(), content.end());
  if (const std::string fault = para::fault_of(bytes); !fault.empty())
    return refused(fmt::format("{}: {}", name, fault));
  const para::ParaFile file = para::parse(name, bytes, {});
  if (!has_errors(file.log.findings()) && !rate_served(file.image[config::rate_word]))
    return refused(
        fmt::format("{}: word 0 is {}; right would be a rate of 8000 or 16000", name, file.image[config::rate_word]));
  return file_json(file);
}

/// The equaliser of a section, designed as a text with these points would have it.
Json design(const std::string &section, const Json &change, Image &image) {
  const std::string text = fmt::format("rate = {}\n[{}]\npoints = {}\ntaps = {}\n", image[config::rate_word], section,
                                       change.at("value").dump(), change.value("taps", 129));
  const para::ReadText read = para::read_text(text, {});
  if (!has_errors(read.log.findings()))
    for (const char *key : {"half_taps", "coef"}) {
      const Field &field = *para::find_field(fmt::format("{}.{}", section, key));
      for (int32_t i = 0; i < field.count(image[config::rate_word]); ++i)
        set_value(field, image, i, value_of(field, read.image, i));
    }
  return findings_json(read.log.findings());
}

/// A switch's true is 1.
double number(const Json &value) { return value.is_boolean() ? value.get<bool>() : value.get<double>(); }

Json edit(const Json &request) {
  Image image = image_in(request);
  Json findings = Json::array();
  for (const Json &change : request.at("changes")) {
    const auto key = change.at("key").get<std::string>();
    if (key.ends_with(".points"))
      findings = design(key.substr(0, key.rfind('.')), change, image);
    else if (const Field *field = para::find_field(key))
      set_value(*field, image, change.value("element", 0), number(change.at("value")));
    else
      return refused("there is no field " + key);
  }
  return {{"words", words_json(image)}, {"findings", findings}};
}

Json element_json(const Field &field, const Image &image, int32_t element) {
  const double value = value_of(field, image, element);
  return field.is_switch() ? Json(value != 0) : Json(std::stod(para::shortest(field, value)));
}

Json value_json(const Field &field, const Image &image) {
  if (field.extent == config::Extent::scalar)
    return element_json(field, image, 0);
  Json all = Json::array();
  for (int32_t i = 0; i < field.count(image[config::rate_word]); ++i)
    all.push_back(element_json(field, image, i));
  return all;
}

Json level_curve(const para::Values &values, const std::string &path) {
  const inspect::LevelCurve curve(values, path + ".agc");
  Json points = Json::array();
  for (int level = -90; level <= 0; ++level)
    points.push_back({level, curve(level)});
  return points;
}

Json response(const para::Values &values, const std::string &path) {
  constexpr int steps = 256;
  const auto half = values.heard_response(path + ".eq");
  Json points = Json::array();
  for (int k = 0; k <= steps; ++k) {
    const double hz = values.rate() / 2.0 * k / steps;
    points.push_back({hz, para::response_db(half, hz, values.rate())});
  }
  return points;
}

Json stages_json(const std::vector<Stage> &stages) {
  Json rows = Json::array();
  for (const Stage &stage : stages)
    rows.push_back({{"name", stage.name}, {"on", stage.on}});
  return rows;
}

Json view(const Json &request) {
  const Image image = image_in(request);
  const int32_t rate = image[config::rate_word];
  const para::Values values(image);
  const Setup setup{image, "", rate, frame_length(rate, served_frame_ms.back())};
  Json all = Json::object(), inert = Json::array(), groups = Json::array();
  for (const Field &field : config::fields) {
    all[para::path_of(field)] = value_json(field, image);
    if (!owns_words(field, image))
      inert.push_back(para::path_of(field));
  }
  for (int32_t group = 0; group < group_count(rate); ++group)
    groups.push_back({para::group_range(rate, group).low, para::group_range(rate, group).high});
  return {{"rate", rate},
          {"values", all},
          {"inert", inert},
          {"findings", findings_json(inspect::check(image))},
          {"stages", {{"tx", stages_json(tx_stages(setup))}, {"rx", stages_json(rx_stages(setup))}}},
          {"level_curves", {{"tx", level_curve(values, "tx")}, {"rx", level_curve(values, "rx")}}},
          {"responses", {{"tx", response(values, "tx")}, {"rx", response(values, "rx")}}},
          {"groups", groups}};
}

Json diff(const Json &request) {
  Json rows = Json::array();
  for (const inspect::Difference &d :
       inspect::diff(image_in({{"words", request.at("a")}}), image_in({{"words", request.at("b")}})))
    rows.push_back({{"key", d.key}, {"a", d.a}, {"b", d.b}, {"unit", d.unit}, {"meaning", d.meaning}});
  return {{"differences", rows}};
}

Json text(const Json &request) { return {{"text", para::write_text(image_in(request))}}; }

Json packed(const Json &request) {
  static std::string bytes;
  bytes = para::packed_bytes(image_in(request));
  return {{"bytes", place_of<char>("Uint8Array", bytes)}};
}

} // namespace

std::span<const Verb> parameter_verbs() {
  static constexpr Verb verbs[] = {{"hello", hello}, {"preset", preset}, {"read", read}, {"edit", edit},
                                   {"view", view},   {"diff", diff},     {"text", text}, {"packed", packed}};
  return verbs;
}

} // namespace qv::web
