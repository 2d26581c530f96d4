#include "scene/truth.h"

#include <cmath>

#include "scene/section.h"

namespace qv::tool::scene {
namespace {

constexpr Range seconds = {0, 1e6, "s"};

std::optional<std::vector<Interval>> read_intervals(Section &section, const char *key) {
  const auto rows = section.rows(key, 2, seconds);
  if (!section.has(key))
    return std::nullopt;
  std::vector<Interval> intervals;
  for (const auto &row : rows)
    intervals.push_back({row[0], row[1]});
  return intervals;
}

/// Shortest text of a value to the millionth.
std::string micro(double value) { return fmt::format("{}", std::round(value * 1e6) / 1e6); }

std::string interval_list(const std::vector<Interval> &intervals) {
  std::string rows;
  for (const Interval &interval : intervals)
    rows += fmt::format("  [{}, {}],\n", micro(interval.begin), micro(interval.end));
  return rows.empty() ? "[]" : "[\n" + rows + "]";
}

} // namespace

std::optional<double> delay_at(const Truth &truth, double time) {
  std::optional<double> delay;
  for (const DelayPiece &piece : truth.delay)
    if (!delay || piece.from <= time)
      delay = piece.delay + piece.slope * (time - piece.from);
  return delay;
}

std::optional<Truth> read_truth(const std::string &path) { return parse_truth(read_text(path), path); }

std::optional<Truth> parse_truth(std::string_view text, const std::string &path) {
  const toml::table table = parse_toml(text, path);
  Section top(path, "", table);
  if (!top.has("truth"))
    return std::nullopt;
  Section section = top.section("truth");
  Truth truth{read_intervals(section, "far"), read_intervals(section, "near"), {}, {}};
  for (Section &piece : section.sections("delay")) {
    truth.delay.push_back({piece.number("from", seconds), piece.number("delay", {-10, 10, "s"}),
                           piece.number("drift", {-1e4, 1e4, "ppm"}, 0) * 1e-6});
    piece.done();
  }
  for (Section &event : section.sections("events")) {
    const double time = event.number("time", seconds);
    const std::string change = event.choice("change", {"delay", "path", "both", "gap"}, "both");
    truth.events.push_back({time, change == "delay" || change == "both", change == "path" || change == "both"});
    event.done();
  }
  truth.muted = read_intervals(section, "muted").value_or(std::vector<Interval>());
  truth.no_reference = read_intervals(section, "no_reference").value_or(std::vector<Interval>());
  truth.distortion = section.optional_number("distortion", {-200, 0, "dB"});
  section.done();
  return truth;
}

std::string truth_text(const Truth &truth) {
  std::string text = "[truth]\n";
  if (truth.far)
    text += fmt::format("far = {}\n", interval_list(*truth.far));
  if (truth.near)
    text += fmt::format("near = {}\n", interval_list(*truth.near));
  if (!truth.muted.empty())
    text += fmt::format("muted = {}\n", interval_list(truth.muted));
  if (!truth.no_reference.empty())
    text += fmt::format("no_reference = {}\n", interval_list(truth.no_reference));
  if (truth.distortion)
    text += fmt::format("distortion = {}\n", micro(*truth.distortion));
  for (const DelayPiece &piece : truth.delay)
    text += fmt::format("[[truth.delay]]\nfrom = {}\ndelay = {}\ndrift = {}\n", micro(piece.from), micro(piece.delay),
                        micro(piece.slope * 1e6));
  for (const EchoEvent &event : truth.events)
    text += fmt::format("[[truth.events]]\ntime = {}\nchange = \"{}\"\n", micro(event.time),
                        event.new_delay  ? event.new_path ? "both" : "delay"
                        : event.new_path ? "path"
                                         : "gap");
  return text;
}

} // namespace qv::tool::scene
