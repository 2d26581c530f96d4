#include "report/lanes.h"

#include <algorithm>
#include <cmath>
#include <functional>

namespace qv::tool::report {
namespace {

constexpr double least_gain_db = -60;      // drawn for a gain of 0
constexpr double least_reduction_db = -30; // and of a silent microphone's
constexpr double least_residual_db = -101; // dBov: what rounding to 16 bits leaves

using Trace = std::vector<QvVoiceTrace>;
using OfFrame = std::function<std::optional<double>(const QvVoiceTrace &)>;

double gain_db(float gain) { return std::max(20 * std::log10(std::max(double(gain), 1e-9)), least_gain_db); }

/// Of the echo that the state-space canceller expects its filter to leave, dBov; none below what can be heard.
std::optional<double> residual_level(const QvVoiceTrace &frame) {
  constexpr double full_scale_db = 90.309; // of 32768, squared
  const double level = double(frame.expected_residual_db) - full_scale_db;
  return level > least_residual_db ? std::optional(level) : std::nullopt;
}

double reduction_db(float erle) { return std::max(double(erle), least_reduction_db); }

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

  /// Between two values of every frame, behind the curves.
  void add_band(const std::string &label, const Trace &trace, const OfFrame &low, const OfFrame &high) {
    Json band = {{"label", label}, {"low", Json::array()}, {"high", Json::array()}};
    for (const auto &[edge, value] : {std::pair("low", &low), {"high", &high}})
      for (size_t begin = 0; begin < frames_; begin += merged_)
        band[edge].push_back(
            rounded(merged([&](size_t i) { return i < trace.size() ? (*value)(trace[i]) : std::nullopt; }, begin)));
    all_.back()["band"] = band;
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
  for_each_run(run, other, [&](const RunView &view, const std::string &suffix, bool is_other) {
    if (used_state_space(view))
      lanes.add_traced("expected residual echo" + suffix, is_other, view.output.trace, residual_level);
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
  const auto in_ms = [&](int samples) { return 1000.0 * samples / subject.rate; };
  const bool of_other = !used_state_space(run); // one band is drawn
  if (const RunView *view = !of_other ? &run : other ? &*other : nullptr; view && used_state_space(*view))
    lanes.add_band(
        of_other ? "reach of the filter, other" : "reach of the filter", view->output.trace,
        [&](const QvVoiceTrace &frame) { return in_ms(frame.filter_delay); },
        [&](const QvVoiceTrace &frame) { return in_ms(frame.filter_delay + frame.filter_length); });
}

/// How well the state-space canceller knows the path, and how it moves.
void add_state_space(Lanes &lanes, const RunView &run, const std::optional<RunView> &other) {
  const auto add = [&](const char *title, const char *unit, const char *label, const OfFrame &value) {
    lanes.begin(title, unit);
    for_each_run(run, other, [&](const RunView &view, const std::string &suffix, bool is_other) {
      if (used_state_space(view))
        lanes.add_traced(label + suffix, is_other, view.output.trace, value);
    });
  };
  add("Explained", "%", "share of the microphone's power that the filter takes off",
      [](const QvVoiceTrace &frame) { return 100.0 * double(frame.explained); });
  add("Drift", "ppm", "microphone's clock faster than the loudspeaker's",
      [](const QvVoiceTrace &frame) { return double(frame.drift_ppm); });
}

void add_erle(Lanes &lanes, const RunView &run, const std::optional<RunView> &other) {
  lanes.begin("Echo reduction", "dB");
  for_each_run(run, other, [&](const RunView &view, const std::string &suffix, bool is_other) {
    const Trace &trace = view.output.trace;
    lanes.add_traced("all" + suffix, is_other, trace,
                     [](const QvVoiceTrace &frame) { return reduction_db(frame.erle_db); });
    lanes.add_traced("linear filter" + suffix, is_other, trace,
                     [](const QvVoiceTrace &frame) { return reduction_db(frame.linear_erle_db); });
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

} // namespace

Json lanes(const measure::Subject &subject, const RunView &run, const std::optional<RunView> &other,
           const std::vector<DelayPoint> &delays) {
  const auto frame_len = size_t(run.output.frame_len);
  Lanes all(double(frame_len) / subject.rate, run.output.trace.size());
  add_levels(all, subject, run, other, frame_len);
  add_delay(all, subject, run, other, delays);
  add_erle(all, run, other);
  if (used_state_space(run) || (other && used_state_space(*other)))
    add_state_space(all, run, other);
  add_noise(all, run, other);
  add_gains(all, run, other);
  return all.take();
}

} // namespace qv::tool::report
