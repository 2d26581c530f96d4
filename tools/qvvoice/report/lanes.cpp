#include "report/lanes.h"

#include <algorithm>
#include <cmath>
#include <functional>

namespace qv::tool::report {
namespace {

constexpr double least_gain_db = -60; // drawn for a gain of 0

using Trace = std::vector<QvVoiceTrace>;
using OfFrame = std::function<std::optional<double>(const QvVoiceTrace &)>;

Json rounded(std::optional<double> value) {
  return value && std::isfinite(*value) ? Json(std::round(100 * *value) / 100) : Json();
}

double gain_db(float gain) { return std::max(20 * std::log10(std::max(double(gain), 1e-9)), least_gain_db); }

/// The charts of one call, filled series by series.
class Lanes {
public:
  Lanes(double step, size_t frames) : step_(step), frames_(frames), merged_(frames_per_point(frames)) {}

  void begin(const char *title, const char *unit, bool steps = false) {
    all_.push_back({{"title", title},
                    {"unit", unit},
                    {"step", double(merged_) * step_},
                    {"steps", steps},
                    {"series", Json::array()}});
  }

  /// @param value  of frame i
  void add(const std::string &label, bool other, const std::function<std::optional<double>(size_t)> &value,
           bool points = false) {
    Json values = Json::array();
    for (size_t begin = 0; begin < frames_; begin += merged_)
      values.push_back(rounded(merged(value, begin)));
    all_.back()["series"].push_back({{"label", label}, {"other", other}, {"points", points}, {"values", values}});
  }

  void add_traced(const std::string &label, bool other, const Trace &trace, const OfFrame &value) {
    if (!trace.empty())
      add(label, other, [&](size_t i) { return i < trace.size() ? value(trace[i]) : std::nullopt; });
  }

  size_t frame_of(double time) const { return size_t(std::lround(time / step_)); }
  double time_of(size_t frame) const { return double(frame) * step_; }
  Json take() { return std::move(all_); }

private:
  /// One value for the frames of a point that have one.
  std::optional<double> merged(const std::function<std::optional<double>(size_t)> &value, size_t begin) const {
    const bool last_counts = all_.back()["steps"];
    double sum = 0, count = 0;
    for (size_t i = begin; i < std::min(begin + merged_, frames_); ++i)
      if (const auto one = value(i); one && std::isfinite(*one)) {
        sum = last_counts ? *one : sum + *one;
        count = last_counts ? 1 : count + 1;
      }
    return count > 0 ? std::optional(sum / count) : std::nullopt;
  }

  double step_;
  size_t frames_, merged_; ///< all, and those that one point stands for
  Json all_ = Json::array();
};

/// Calls `add(run, suffix of its labels, whether it is the other)` for each run.
void for_each_run(const RunView &run, const std::optional<RunView> &other,
                  const std::function<void(const RunView &, const std::string &, bool)> &add) {
  add(run, "", false);
  if (other)
    add(*other, ", other", true);
}

void add_levels(Lanes &lanes, const measure::Subject &subject, const RunView &run, const std::optional<RunView> &other,
                size_t frame_len) {
  const auto level = [frame_len](const std::vector<int16_t> &samples) {
    return [&samples, frame_len](size_t i) -> std::optional<double> {
      const size_t begin = i * frame_len;
      if (begin + frame_len > samples.size())
        return std::nullopt;
      return to_db(power(to_signal(std::span(samples).subspan(begin, frame_len))));
    };
  };
  lanes.begin("Level", "dBov");
  lanes.add("microphone", false, level(subject.mic));
  lanes.add("reference", false, level(subject.ref));
  for_each_run(run, other, [&](const RunView &view, const std::string &suffix, bool is_other) {
    lanes.add("output" + suffix, is_other, level(view.output.sent));
  });
}

void add_delay(Lanes &lanes, const measure::Subject &subject, const RunView &run, const std::optional<RunView> &other,
               const std::vector<DelayPoint> &delays) {
  lanes.begin("Echo delay", "ms", true);
  for_each_run(run, other, [&](const RunView &view, const std::string &suffix, bool is_other) {
    lanes.add_traced("library" + suffix, is_other, view.output.trace,
                     [&](const QvVoiceTrace &frame) { return 1000.0 * frame.echo_delay / subject.rate; });
  });
  std::vector<std::optional<double>> points;
  for (const DelayPoint &point : delays) {
    points.resize(std::max(points.size(), lanes.frame_of(point.time) + 1));
    points[lanes.frame_of(point.time)] = 1000 * point.delay;
  }
  lanes.add(
      "recording", false, [&](size_t i) { return i < points.size() ? points[i] : std::nullopt; }, true);
  if (subject.truth && !subject.truth->delay.empty())
    lanes.add("truth", false, [&](size_t i) -> std::optional<double> {
      const auto delay = scene::delay_at(*subject.truth, lanes.time_of(i));
      return delay ? std::optional(1000 * *delay) : std::nullopt;
    });
}

void add_erle(Lanes &lanes, const RunView &run, const std::optional<RunView> &other) {
  lanes.begin("Echo reduction", "dB");
  for_each_run(run, other, [&](const RunView &view, const std::string &suffix, bool is_other) {
    const Trace &trace = view.output.trace;
    lanes.add_traced("all" + suffix, is_other, trace, [](const QvVoiceTrace &frame) { return double(frame.erle_db); });
    lanes.add_traced("linear filter" + suffix, is_other, trace,
                     [](const QvVoiceTrace &frame) { return double(frame.linear_erle_db); });
    const auto &quarters = view.results.quarters;
    lanes.add("while the far end is heard" + suffix, is_other, [&](size_t i) {
      const auto quarter = size_t(lanes.time_of(i) / 0.25);
      return quarter < quarters.size() ? quarters[quarter].erle : std::nullopt;
    });
  });
}

void add_noise(Lanes &lanes, const RunView &run, const std::optional<RunView> &other) {
  lanes.begin("Noise level", "dB");
  for_each_run(run, other, [&](const RunView &view, const std::string &suffix, bool is_other) {
    lanes.add_traced("tracked noise per band" + suffix, is_other, view.output.trace, [](const QvVoiceTrace &frame) {
      return frame.tx_noise.noise_db > -100 ? std::optional(double(frame.tx_noise.noise_db)) : std::nullopt;
    });
  });
}

void add_gains(Lanes &lanes, const RunView &run, const std::optional<RunView> &other) {
  lanes.begin("Gains", "dB");
  for_each_run(run, other, [&](const RunView &view, const std::string &suffix, bool is_other) {
    const auto add = [&](const char *label, const auto &gain) {
      lanes.add_traced(label + suffix, is_other, view.output.trace,
                       [&](const QvVoiceTrace &frame) { return gain_db(gain(frame)); });
    };
    add("echo suppressor", [](const QvVoiceTrace &frame) { return frame.suppressor_gain; });
    add("noise reducer", [](const QvVoiceTrace &frame) { return frame.tx_noise.mean_gain; });
    add("AGC", [](const QvVoiceTrace &frame) { return frame.tx_agc_gain; });
  });
}

Json state(const char *label, const char *colour) { return {{"label", label}, {"colour", colour}}; }

/// Frames of equal state as runs; states below 0 are not drawn.
Json state_row(const std::string &label, Json states, double step, const std::vector<int> &of_frame) {
  Json runs = Json::array();
  for (size_t begin = 0; begin < of_frame.size();) {
    size_t end = begin + 1;
    while (end < of_frame.size() && of_frame[end] == of_frame[begin])
      ++end;
    if (of_frame[begin] >= 0)
      runs.push_back(Json::array({rounded(double(begin) * step), rounded(double(end) * step), of_frame[begin]}));
    begin = end;
  }
  return {{"label", label}, {"states", std::move(states)}, {"runs", std::move(runs)}};
}

Json interval_row(const std::string &label, Json states, const std::vector<Interval> &intervals) {
  Json runs = Json::array();
  for (const Interval &interval : intervals)
    runs.push_back(Json::array({interval.begin, interval.end, 0}));
  return {{"label", label}, {"states", std::move(states)}, {"runs", std::move(runs)}};
}

} // namespace

Json lanes(const measure::Subject &subject, const RunView &run, const std::optional<RunView> &other,
           const std::vector<DelayPoint> &delays) {
  const auto frame_len = size_t(run.output.frame_len);
  Lanes all(double(frame_len) / subject.rate, run.output.trace.size());
  add_levels(all, subject, run, other, frame_len);
  add_delay(all, subject, run, other, delays);
  add_erle(all, run, other);
  add_noise(all, run, other);
  add_gains(all, run, other);
  return all.take();
}

Json strips(const measure::Subject &subject, const RunView &run, const std::optional<RunView> &other) {
  Json rows = Json::array();
  if (subject.truth && subject.truth->far)
    rows.push_back(interval_row("far end (truth)", Json::array({state("far end", "series-1")}), *subject.truth->far));
  if (subject.truth && subject.truth->near)
    rows.push_back(
        interval_row("near end (truth)", Json::array({state("near end", "series-3")}), *subject.truth->near));
  for_each_run(run, other, [&](const RunView &view, const std::string &suffix, bool) {
    if (view.output.trace.empty())
      return;
    const auto row = [&](const std::string &label, const Json &states, const auto &value) {
      std::vector<int> frames;
      std::ranges::transform(view.output.trace, std::back_inserter(frames), value);
      rows.push_back(state_row(label + suffix, states, double(view.output.frame_len) / subject.rate, frames));
    };
    const Json talk = Json::array({state("far end silent", "grid"), state("far end alone", "series-1"),
                                   state("double talk or undecided", "series-2")});
    row("talk state", talk, [](const QvVoiceTrace &frame) { return frame.talk_state; });
    row("muted", Json::array({state("muted", "wrong")}),
        [](const QvVoiceTrace &frame) { return frame.muted ? 0 : -1; });
    row("comfort noise", Json::array({state("comfort noise", "series-4")}),
        [](const QvVoiceTrace &frame) { return frame.comfort_noise ? 0 : -1; });
  });
  return {{"title", "States"}, {"rows", rows}};
}

} // namespace qv::tool::report
