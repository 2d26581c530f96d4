// States over time.

#include "report/lanes.h"

namespace qv::tool::report {
namespace {

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
    if (used_state_space(view)) {
      row("background", Json::array({state("background in place of the echo", "series-4")}),
          [](const QvVoiceTrace &frame) { return frame.single_talk ? 0 : -1; });
      row("path change", Json::array({state("path change found", "wrong")}),
          [](const QvVoiceTrace &frame) { return frame.path_changed ? 0 : -1; });
      rows.back()["marks"] = true; // of a frame: drawn so wide that they are seen
      return;
    }
    row("muted", Json::array({state("muted", "wrong")}),
        [](const QvVoiceTrace &frame) { return frame.muted ? 0 : -1; });
    row("comfort noise", Json::array({state("comfort noise", "series-4")}),
        [](const QvVoiceTrace &frame) { return frame.comfort_noise ? 0 : -1; });
  });
  return {{"title", "States"}, {"rows", rows}};
}

} // namespace qv::tool::report
