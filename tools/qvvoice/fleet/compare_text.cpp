#include <algorithm>

#include <fmt/format.h>

#include "fleet/compare.h"

namespace qv::tool::fleet {
namespace {

const char *name_of(Verdict verdict) {
  return verdict == Verdict::better ? "better" : verdict == Verdict::worse ? "worse" : "";
}

std::string never_of(const Difference &one) {
  return one.never_a + one.never_b > 0 ? fmt::format("  never: {} in A, {} in B", one.never_a, one.never_b) : "";
}

std::string row_of(const Difference &one) {
  const int digits = one.measure->decimals;
  const std::string name = one.tag.empty() ? one.measure->key : fmt::format("  {} {}", one.measure->key, one.tag);
  if (one.pairs == 0)
    return fmt::format("{:52}{:>7}{}\n", name, 0, never_of(one));
  const std::string interval =
      one.interval ? fmt::format("{:+.{}f} .. {:+.{}f}", one.interval->low, digits + 1, one.interval->high, digits + 1)
                   : "too few";
  return fmt::format("{:52}{:>7}{:>10.{}f}{:>10.{}f}{:>+10.{}f}  {:22} {:6} {}{}\n", name, one.pairs, one.a, digits,
                     one.b, digits, one.mean, digits + 1, interval, name_of(one.verdict()), one.measure->unit,
                     never_of(one));
}

Json json_of(const Difference &one) {
  const bool any = one.pairs > 0;
  return {{"measure", one.measure->key},
          {"tag", one.tag},
          {"pairs", one.pairs},
          {"a", any ? Json(one.a) : Json()},
          {"b", any ? Json(one.b) : Json()},
          {"difference", any ? Json(one.mean) : Json()},
          {"low", one.interval ? Json(one.interval->low) : Json()},
          {"high", one.interval ? Json(one.interval->high) : Json()},
          {"verdict", name_of(one.verdict())},
          {"never_a", one.never_a},
          {"never_b", one.never_b}};
}

} // namespace

std::string as_text(const Comparison &comparison) {
  std::string text = fmt::format(
      "A {}, B {}: {} recordings in both{}\n{} % confidence of each row by itself: paired bootstrap over recordings "
      "(above 1000 the normal interval)\n\n{:52}{:>7}{:>10}{:>10}{:>10}  {}\n",
      comparison.a, comparison.b, comparison.recordings,
      comparison.only_a + comparison.only_b > 0
          ? fmt::format(", {} in A alone, {} in B alone", comparison.only_a, comparison.only_b)
          : "",
      100 * comparison.confidence, "measure", "pairs", "A", "B", "B - A", "interval");
  for (const Difference &one : comparison.overall)
    text += row_of(one);
  text += "\nby tag, where there is a difference\n";
  for (const Difference &one : comparison.by_tag)
    if (one.verdict() != Verdict::open)
      text += row_of(one);
  text += fmt::format(
      "\nworst recordings, by their differences over those of all (root mean square), mean of the measures\n");
  for (const Worst &one : comparison.worst)
    text += fmt::format("{:52}{:>7.2f}  {} {:.{}f} -> {:.{}f} {}\n", one.name, one.size, one.measure->key, one.a,
                        one.measure->decimals, one.b, one.measure->decimals, one.measure->unit);
  return text;
}

std::string as_csv(const Comparison &comparison) {
  std::string text = "measure,tag,pairs,a,b,difference,low,high,verdict,never_a,never_b\n";
  for (const auto *part : {&comparison.overall, &comparison.by_tag})
    for (const Difference &one : *part) {
      const Json row = json_of(one);
      std::string tag = "\"";
      for (const char c : one.tag)
        tag += c == '"' ? "\"\"" : std::string(1, c);
      const auto number = [&](const char *key) { return row[key].is_null() ? "" : row[key].dump(); };
      text += fmt::format("{},{}\",{},{},{},{},{},{},{},{},{}\n", one.measure->key, tag, one.pairs, number("a"),
                          number("b"), number("difference"), number("low"), number("high"), name_of(one.verdict()),
                          one.never_a, one.never_b);
    }
  return text;
}

Json as_json(const Comparison &comparison) {
  Json rows = Json::array(), worst = Json::array();
  for (const auto *part : {&comparison.overall, &comparison.by_tag})
    for (const Difference &one : *part)
      rows.push_back(json_of(one));
  for (const Worst &one : comparison.worst)
    worst.push_back(
        {{"name", one.name}, {"size", one.size}, {"measure", one.measure->key}, {"a", one.a}, {"b", one.b}});
  return {{"a", comparison.a},
          {"b", comparison.b},
          {"confidence", comparison.confidence},
          {"recordings", comparison.recordings},
          {"only_a", comparison.only_a},
          {"only_b", comparison.only_b},
          {"differences", rows},
          {"worst", worst}};
}

} // namespace qv::tool::fleet
