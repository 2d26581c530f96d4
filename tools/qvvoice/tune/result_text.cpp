#include "tune/result_text.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "para/text_writer.h"

namespace qv::tool::tune {
namespace {

using config::Field;
using config::Image;

/// Points of a want that a field buys. Between two limits on one measure it is not better to be further from one.
double bought(const Plan &plan, const Want &want, const Effect &effect) {
  const auto limits = std::ranges::count(plan.wants, want.measure, &Want::measure);
  const double with = want.missed(want.in(effect.with)), without = want.missed(want.in(effect.without));
  const double points = limits > 1 ? std::max(without, 0.0) - std::max(with, 0.0) : without - with;
  return std::isnan(points) ? 0 : points;
}

std::string effect_text(const Plan &plan, const Effect &effect) {
  constexpr double nothing = 0.01; // points
  const Want &want =
      *std::ranges::max_element(plan.wants, {}, [&](const Want &one) { return bought(plan, one, effect); });
  const std::string cost =
      fmt::format("{:.2f} points{}", effect.lost, effect.at_bound ? "; at the end of its range" : "");
  if (bought(plan, want, effect) < nothing)
    return fmt::format("without it nothing that is wanted gets worse there; on the recordings tuned on {}", cost);
  const int decimals = want.measure->decimals;
  return fmt::format("{} {:.{}f}, without it {:.{}f}; {}", want.measure->key, want.in(effect.with), decimals,
                     want.in(effect.without), decimals, cost);
}

Json number_or_null(double number) { return std::isnan(number) ? Json() : Json(number); }

Json with_gaps(const Numbers &numbers) {
  Json json = Json::object();
  for (size_t i = 0; i < numbers.size(); ++i)
    json[measure::measures()[i].key] = number_or_null(numbers[i]);
  return json;
}

Json part_json(const Plan &plan, const Judged &judged) {
  const Numbers before = mean_of(judged.before), after = mean_of(judged.after);
  Json recordings = Json::array();
  for (size_t i = 0; i < judged.names.size(); ++i)
    recordings.push_back({{"name", judged.names[i]},
                          {"cost_before", plan.cost(judged.before[i])},
                          {"cost_after", plan.cost(judged.after[i])},
                          {"before", with_gaps(judged.before[i])},
                          {"after", with_gaps(judged.after[i])}});
  std::stable_sort(recordings.begin(), recordings.end(),
                   [](const Json &a, const Json &b) { return a["cost_after"] > b["cost_after"]; });
  return {{"part", judged.part},         {"cost_before", plan.cost(before)}, {"cost_after", plan.cost(after)},
          {"met", all_met(plan, after)}, {"before", with_gaps(before)},      {"after", with_gaps(after)},
          {"recordings", recordings}};
}

std::string cell(const Json &number, int decimals) {
  return number.is_number() ? fmt::format("{:.{}f}", double(number), decimals) : "-";
}

/// Means of every measure before and after, and what was wanted.
std::string means_table(const Json &result, const Json &part) {
  std::string text =
      fmt::format("{}: {} recordings, {:.2f} points missed before, {:.2f} after\n", std::string(part["part"]),
                  part["recordings"].size(), double(part["cost_before"]), double(part["cost_after"]));
  text += fmt::format("  {:25}{:>10}{:>10}  {}\n", "mean of", "before", "after", "wanted");
  for (const measure::Measure &measure : measure::measures()) {
    const Json &before = part["before"][measure.key], &after = part["after"][measure.key];
    if (before.is_null() && after.is_null())
      continue;
    text +=
        fmt::format("  {:25}{:>10}{:>10}", measure.key, cell(before, measure.decimals), cell(after, measure.decimals));
    for (const Json &want : result["wants"])
      if (want["measure"] == measure.key) {
        const double limit = want["limit"], missed = want["at_least"] ? limit - double(after) : double(after) - limit;
        text +=
            fmt::format("  {} {:g}{}", want["at_least"] ? "at least" : "at most", limit, missed > 0 ? " MISSED" : "");
      }
    text += '\n';
  }
  return text;
}

std::string recordings_table(const Json &result, const Json &part) {
  std::string text = fmt::format("  {:25}{:>10}{:>10}", "points missed", "before", "after");
  for (const Json &want : result["wants"])
    text += fmt::format("  {}", std::string(want["measure"]));
  text += '\n';
  for (const Json &recording : part["recordings"]) {
    text += fmt::format("  {:25}{:>10.2f}{:>10.2f}", std::string(recording["name"]), double(recording["cost_before"]),
                        double(recording["cost_after"]));
    for (const Json &want : result["wants"]) {
      const std::string key = want["measure"];
      text += fmt::format("  {:>{}}", cell(recording["after"][key], 2), key.size());
    }
    text += '\n';
  }
  return text;
}

} // namespace

std::string parameter_text(const Plan &plan, const Result &result, const Writing &writing, const Numbers &reached,
                           const std::string &where) {
  const Image &image = result.after.image;
  const int32_t rate = image[config::rate_word];
  std::string text = plan.about.empty() ? "" : fmt::format("# {}\n", plan.about);
  text += fmt::format("# By qvvoice tune, plan {}. Means over the recordings {}:\n", plan.title, where);
  for (const Want &want : plan.wants)
    text += fmt::format("#   {} {:.{}f} (wanted: {} {:g})\n", want.measure->key, want.in(reached),
                        want.measure->decimals, want.at_least ? "at least" : "at most", want.limit);
  text += fmt::format("name = \"{}\"\nrate = {}\nframe_ms = {}\n", writing.name, rate, writing.frame_ms);
  if (!writing.base.empty())
    text += fmt::format("base = \"{}\"\n", writing.base);
  for (const config::Section &section : config::sections) {
    std::string lines;
    for (const Field &field : config::fields) {
      const std::string value = para::toml_value(field, image);
      if (field.section != section.name || value == para::toml_value(field, writing.from))
        continue;
      const auto effect = std::ranges::find(result.effects, &field, &Effect::field);
      if (effect != result.effects.end())
        lines +=
            fmt::format("# {} before; {}\n", para::toml_value(field, result.before.image), effect_text(plan, *effect));
      lines += fmt::format("{} = {}\n", field.key, value);
    }
    if (!lines.empty())
      text += fmt::format("\n[{}]\n{}", section.name, lines);
  }
  return text;
}

bool all_met(const Plan &plan, const Numbers &numbers) {
  return std::ranges::none_of(plan.wants, [&](const Want &want) { return want.missed(want.in(numbers)) > 0; });
}

Json result_json(const Plan &plan, const Result &result, const std::vector<Judged> &parts) {
  Json wants = Json::array(), fields = Json::array(), judged = Json::array();
  for (const Want &want : plan.wants)
    wants.push_back(
        {{"measure", want.measure->key}, {"at_least", want.at_least}, {"limit", want.limit}, {"point", want.point}});
  for (const Effect &effect : result.effects)
    fields.push_back({{"field", para::path_of(*effect.field)},
                      {"before", para::toml_value(*effect.field, result.before.image)},
                      {"after", para::toml_value(*effect.field, result.after.image)},
                      {"lost", effect.lost},
                      {"at_bound", effect.at_bound},
                      {"meaning", effect_text(plan, effect)}});
  for (const Judged &part : parts)
    judged.push_back(part_json(plan, part));
  return {{"plan", plan.title}, {"evaluations", result.course.size()},
          {"wants", wants},     {"parts", judged},
          {"fields", fields},   {"course", result.course}};
}

std::string result_text(const Json &result) {
  std::string text =
      fmt::format("plan {}, {} evaluations\n", std::string(result["plan"]), size_t(result["evaluations"]));
  for (const Json &part : result["parts"])
    text += fmt::format("\n{}\n{}", means_table(result, part), recordings_table(result, part));
  text += "\nwhat the fields buy, most first\n";
  for (const Json &field : result["fields"])
    text += fmt::format("  {} = {}, {} before: {}\n", std::string(field["field"]), std::string(field["after"]),
                        std::string(field["before"]), std::string(field["meaning"]));
  const Json &last = result["parts"].back();
  text += fmt::format("\n{}: {}\n", std::string(last["part"]),
                      last["met"] ? "every want is met" : "not every want is met; MISSED above says which");
  return text;
}

} // namespace qv::tool::tune
