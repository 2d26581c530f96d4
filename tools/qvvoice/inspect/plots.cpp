#include "inspect/plots.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "inspect/level_curve.h"
#include "inspect/svg_panel.h"
#include "para/bands.h"
#include "para/fir_design.h"

namespace qv::tool::inspect {

using namespace para;

namespace {

struct Path {
  const char *section, *name, *style;
};

std::string with_state(const Values &values, const Path &path, const char *module) {
  return fmt::format("{}{}", path.name, values.on(fmt::format("{}.{}.enable", path.section, module)) ? "" : " (off)");
}

constexpr Path paths[] = {{"tx", "transmit", solid}, {"rx", "receive", dashed}};

double decibels(double power, double lowest) { return std::max(10 * std::log10(std::max(power, 1e-9)), lowest); }

/// A line that is level across each group's bands.
std::vector<ChartPoint> per_group(const Values &values, const std::string &key, double lowest) {
  std::vector<ChartPoint> points;
  for (int32_t g = 0; g < group_count(values.rate()); ++g) {
    const double y = decibels(values(key, g), lowest);
    points.push_back({4.0 * g, y});
    points.push_back({4.0 * g + 4, y});
  }
  return points;
}

void shade_unjudged(const Values &values, SvgPanel &panel) {
  for (int32_t g = 0; g < group_count(values.rate()); ++g)
    if (values("aec.double_talk.judge", g) != 1)
      panel.shade(4.0 * g, 4.0 * g + 4);
}

using Lines = std::vector<std::pair<const char *, const char *>>; // key, style

/// Level lines of keys in the detector's section, with their legend.
void draw_groups(const Values &values, const Lines &lines, double lowest, SvgPanel &panel) {
  for (const auto &[key, style] : lines) {
    panel.line(per_group(values, fmt::format("aec.double_talk.{}", key), lowest), style);
    panel.legend(key, style);
  }
}

Axis group_axis(const Values &values) {
  const int32_t groups = group_count(values.rate());
  Axis axis{"Hz, at the edges of the groups of four bands", 0, 4.0 * groups, 4, {"0"}};
  for (int32_t g = 0; g < groups; ++g)
    axis.labels.push_back(fmt::format("{:.0f}", group_range(values.rate(), g).high));
  return axis;
}

SvgPanel residual_panel(const Values &values, const Axis &bands, const std::string &source) {
  SvgPanel panel("Double-talk detector: " + source, bands, {"band power, dB of 1", -10, 50, 10}, 40, 240);
  shade_unjudged(values, panel);
  draw_groups(
      values,
      {{"residual_high", solid}, {"residual_low", dashed}, {"far_judge_power", dotted}, {"far_echo_power", faint}}, -10,
      panel);
  return panel;
}

SvgPanel ratio_panel(const Values &values, const Axis &bands, double top) {
  constexpr double lowest = -40; // dB
  SvgPanel panel("Residual-to-microphone ratio", bands, {"power ratio, dB", lowest, 0, 10}, top, 240);
  shade_unjudged(values, panel);
  draw_groups(values, {{"ratio_high", solid}, {"ratio_low", dashed}}, lowest, panel);
  for (const char *key : {"presence_min", "presence_max"}) {
    const double y = decibels(values(fmt::format("aec.double_talk.{}", key)), lowest);
    panel.line({{bands.low, y}, {bands.high, y}}, dotted);
  }
  panel.legend("presence_min, presence_max: ratio times presence that counts", dotted);
  constexpr const char *bar = "stroke=\"#000\" stroke-width=\"6\"";
  panel.line({{values("aec.double_talk.count_from"), lowest}, {values("aec.double_talk.count_to"), lowest}}, bar);
  panel.legend("bands that count; bands on grey are not judged", bar);
  return panel;
}

std::vector<ChartPoint> response_curve(const Values &values, const Path &path) {
  constexpr int steps = 512;
  const auto half = values.heard_response(fmt::format("{}.eq", path.section));
  std::vector<ChartPoint> points;
  for (int k = 0; k <= steps; ++k) {
    const double hz = values.rate() / 2.0 * k / steps;
    points.push_back({hz, response_db(half, hz, values.rate())});
  }
  return points;
}

} // namespace

std::string plot_gain_control(const Image &image, const std::string &source) {
  const Values values(image);
  SvgPanel panel("Gain control: " + source, {"level in, dB of a full-scale square wave", -90, 0, 10},
                 {"level out, dB", -90, 10, 10}, 40, 480);
  panel.line({{-90, -90}, {0, 0}}, faint);
  panel.line({{-90, 0}, {0, 0}}, faint);
  for (const Path &path : paths) {
    const LevelCurve curve(values, fmt::format("{}.agc", path.section));
    std::vector<ChartPoint> points;
    for (double level = -90; level <= 0; level += 0.25)
      points.push_back({level, curve(level)});
    panel.line(points, path.style);
    for (const double knee : {curve.knee_low, curve.knee_high})
      panel.marker({knee, curve(knee)});
    panel.legend(fmt::format("{}: knees at {:g} dB (gain {:+.1f} dB) and {:g} dB (gain {:+.1f} dB)",
                             with_state(values, path, "agc"), curve.knee_low, curve.gain(curve.knee_low),
                             curve.knee_high, curve.gain(curve.knee_high)),
                 path.style);
  }
  return svg_document("Gain control", {panel});
}

std::string plot_equaliser(const Image &image, const std::string &source) {
  const Values values(image);
  constexpr double grid = 6, least_span = 6, deepest = -60, highest = 24; // dB
  double low = -least_span, high = least_span;
  for (const Path &path : paths)
    for (const ChartPoint &point : response_curve(values, path)) {
      low = std::clamp(grid * std::floor(point.y / grid), deepest, low);
      high = std::clamp(grid * std::ceil(point.y / grid), high, highest);
    }
  SvgPanel panel("Equaliser: " + source, {"frequency, Hz", 0, values.rate() / 2.0, values.rate() / 16.0},
                 {"magnitude, dB", low, high, high - low > 30 ? 6.0 : 3.0}, 40, 380);
  for (const Path &path : paths) {
    panel.line(response_curve(values, path), path.style);
    const auto half = values.heard_response(fmt::format("{}.eq", path.section));
    panel.legend(fmt::format("{}: delay {} samples", with_state(values, path, "eq"), half.size() - 1), path.style);
  }
  return svg_document("Equaliser", {panel});
}

std::string plot_double_talk(const Image &image, const std::string &source) {
  const Values values(image);
  const Axis bands = group_axis(values);
  const SvgPanel residual = residual_panel(values, bands, source);
  return svg_document("Double-talk detector", {residual, ratio_panel(values, bands, residual.end() + 40)});
}

} // namespace qv::tool::inspect
