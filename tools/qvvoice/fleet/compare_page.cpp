#include <algorithm>

#include <fmt/format.h>

#include "fleet/compare.h"
#include "report/html.h"

namespace qv::tool::fleet {
namespace {

using report::escape;

constexpr double width = 320, height = 110;

/// Share of the recordings at or below each value, as a line from left to right; x from `low` to `high`.
std::string cumulative(std::vector<double> values, double low, double high, const char *kind) {
  std::ranges::sort(values);
  constexpr size_t most_points = 400;
  const size_t step = std::max<size_t>(1, values.size() / most_points);
  std::string points;
  for (size_t i = 0; i < values.size(); i += step)
    points += fmt::format("{:.1f},{:.1f} ", width * (values[i] - low) / (high - low),
                          height * (1 - double(i + 1) / double(values.size())));
  return fmt::format("<polyline class=\"{}\" points=\"{}\"/>", kind, points);
}

std::string axis(double low, double high, int digits) {
  return fmt::format("<text x=\"0\" y=\"{0}\">{1:.{4}f}</text><text x=\"{2}\" y=\"{0}\" class=\"end\">{3:.{4}f}</text>",
                     height + 13, low, width, high, digits);
}

std::string drawing(const std::string &inside) {
  return fmt::format("<svg viewBox=\"-2 -2 {} {}\" width=\"{}\">{}</svg>", width + 4, height + 20, width + 4, inside);
}

std::string distributions(const Comparison &comparison, size_t m) {
  const auto &a = comparison.values_a[m], &b = comparison.values_b[m], &differences = comparison.differences[m];
  const int digits = measure::measures()[m].decimals;
  if (a.size() < 2)
    return "<td></td><td></td>";
  double low = std::min(*std::ranges::min_element(a), *std::ranges::min_element(b));
  double high = std::max(*std::ranges::max_element(a), *std::ranges::max_element(b));
  high = std::max(high, low + 1e-9);
  const std::string both = cumulative(a, low, high, "a") + cumulative(b, low, high, "b") + axis(low, high, digits);
  const double least = std::min(0.0, *std::ranges::min_element(differences));
  const double most = std::max(least + 1e-9, std::max(0.0, *std::ranges::max_element(differences)));
  const double zero = width * -least / (most - least);
  const std::string change = fmt::format("<line x1=\"{0:.1f}\" x2=\"{0:.1f}\" y1=\"0\" y2=\"{1}\"/>", zero, height) +
                             cumulative(differences, least, most, "change") + axis(least, most, digits);
  return fmt::format("<td>{}</td><td>{}</td>", drawing(both), drawing(change));
}

std::string verdict_cell(const Difference &one) {
  const char *name = one.verdict() == Verdict::better ? "better" : one.verdict() == Verdict::worse ? "worse" : "open";
  const int digits = one.measure->decimals;
  return fmt::format(
      "<td class=\"{}\">{}{:+.{}f} {}<br><small>{}</small></td>", name,
      one.verdict() == Verdict::open ? "" : fmt::format("{}<br>", name), one.mean, digits + 1, one.measure->unit,
      one.interval ? fmt::format("{:+.{}f} … {:+.{}f}", one.interval->low, digits + 1, one.interval->high, digits + 1)
                   : "too few to tell");
}

std::string row_of(const Difference &one, const std::string &drawings) {
  const int digits = one.measure->decimals;
  return fmt::format(
      "<tr><td><b>{}</b> {}<br><small>{}</small></td><td>{}</td><td>{:.{}f}</td><td>{:.{}f}</td>{}{}</tr>\n",
      one.measure->key, escape(one.tag), one.measure->meaning, one.pairs, one.a, digits, one.b, digits,
      verdict_cell(one), drawings);
}

constexpr const char *style = R"(body { font: 14px/1.4 sans-serif; margin: 2em; color: #222; background: #fff }
td, th { padding: .3em .8em; vertical-align: top; text-align: left; border-top: 1px solid #ddd }
small { color: #666 } .better { background: #dff2df } .worse { background: #f8dcdc }
svg { font: 11px sans-serif } polyline { fill: none; stroke-width: 1.5 } .end { text-anchor: end }
.a { stroke: #999 } .b { stroke: #05c } .change { stroke: #a50 } line { stroke: #bbb })";

} // namespace

std::string comparison_page(const Comparison &comparison, const std::string &pages) {
  std::string text = fmt::format(
      "<!doctype html><html lang=\"en\"><meta charset=\"utf-8\"><title>{0} against {1}</title><style>{2}</style>\n"
      "<h1>{0} against {1}</h1><p>{3} recordings in both. Each row's interval holds the mean difference with {4} % "
      "confidence (paired bootstrap over recordings, above 1000 the normal interval); of many rows that are alike, "
      "some "
      "differ by chance. Curves: share of the recordings at or below a value, <span style=\"color:#999\">{1}</span>, "
      "<span style=\"color:#05c\">{0}</span>; and of their "
      "differences.</p>\n<table><tr><th>Measure<th>Recordings<th>{1}"
      "<th>{0}<th>Difference<th>Distributions<th>Distribution of the differences</tr>\n",
      escape(comparison.b), escape(comparison.a), style, comparison.recordings, 100 * comparison.confidence);
  for (const Difference &one : comparison.overall)
    if (one.pairs > 0)
      text += row_of(one, distributions(comparison, size_t(one.measure - measure::measures().data())));
  text += "</table>\n<h2>By tag, where there is a difference</h2><table>\n";
  for (const Difference &one : comparison.by_tag)
    if (one.verdict() != Verdict::open)
      text += row_of(one, "");
  text += "</table>\n<h2>Recordings that got worst</h2><table><tr><th>Recording<th>Difference over that of all (root "
          "mean square), "
          "mean of the measures<th>Most</tr>\n";
  for (const Worst &one : comparison.worst)
    text +=
        fmt::format("<tr><td><a href=\"{}\">{}</a></td><td>{:.2f}</td><td>{} {:.{}f} → {:.{}f} {}</td></tr>\n",
                    report::percent_encoded(pages + "/" + one.name + ".html"), escape(one.name), one.size,
                    one.measure->key, one.a, one.measure->decimals, one.b, one.measure->decimals, one.measure->unit);
  return text + "</table></html>\n";
}

} // namespace qv::tool::fleet
