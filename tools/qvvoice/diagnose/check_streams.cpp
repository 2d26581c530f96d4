// The two streams: whether each is there all the time, whether they are two, and whether an echo ties them.

#include "diagnose/checks.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include <fmt/format.h>

#include "signal/activity.h"

namespace qv::tool::diagnose {
namespace {

int peak(const Samples &samples) {
  int highest = 0;
  for (const int sample : samples)
    highest = std::max(highest, std::abs(sample));
  return highest;
}

/// Runs of digital silence between sounds, at least so long.
std::vector<Interval> silent_runs(const Samples &samples, int rate, double least_seconds) {
  std::vector<Interval> runs;
  const auto sounds = [](int16_t sample) { return sample != 0; };
  for (auto begin = std::ranges::find_if(samples, sounds); begin != samples.end();) {
    begin = std::find(begin, samples.end(), 0);
    const auto end = std::find_if(begin, samples.end(), sounds);
    if (end != samples.end() && double(end - begin) >= least_seconds * rate)
      runs.push_back({double(begin - samples.begin()) / rate, double(end - samples.begin()) / rate});
    begin = end;
  }
  return runs;
}

double power_between(SignalView signal, double begin, double end, int rate) {
  return power(excerpt(signal, std::ptrdiff_t(begin * rate), size_t((end - begin) * rate)));
}

/// The reference is cut at `edge` in the middle of a sound, and the microphone does not follow: on the silent side,
/// once an echo has decayed by 20 dB, it is as loud as on the other side before half a second is over.
bool cut_alone(const Evidence &evidence, double edge, int silent_side) {
  constexpr double around = 0.02, before = 0.2; // s
  constexpr std::pair<double, double> no_fade[] = {{0.003, 0.35},
                                                   {0.005, 0.6}};     // s, of the peak: above a fade of 10 ms
  constexpr double decayed = 0.15, longest_pause = 0.55, piece = 0.1; // s; 20 dB of decay for 60 dB in 0.45 s
  const int rate = evidence.setup.rate;
  const auto between = [&](SignalView signal, double from, double to) { // s on the silent side of the edge
    return power_between(signal, edge + std::min(silent_side * from, silent_side * to),
                         edge + std::max(silent_side * from, silent_side * to), rate);
  };
  const double sound = between(evidence.ref, -around, 0),
               active = from_db(active_level_db(evidence.ref, rate).value_or(0));
  const auto peak_within = [&](double seconds) {
    const double begin = silent_side > 0 ? edge - seconds : edge;
    const Signal part = excerpt(evidence.ref, std::ptrdiff_t(begin * rate), size_t(seconds * rate));
    return std::abs(*std::ranges::max_element(part, {}, [](double value) { return std::abs(value); }));
  };
  const bool fades = std::ranges::any_of(
      no_fade, [&](const auto &least) { return peak_within(least.first) < least.second * peak_within(around); });
  if (fades || sound < from_db(-15) * active)
    return false;
  const auto late = [&](double from, double to) {
    const double behind = silent_side * (edge * (evidence.alignment.clock - 1) + evidence.delay.median);
    return between(evidence.mic, from + behind, to + behind);
  };
  for (double from = decayed; from < longest_pause; from += piece)
    if (late(from, from + piece) > from_db(-10) * late(-before, 0))
      return true;
  return false;
}

/// Where the reference is silent while the loudspeaker goes on.
std::vector<Interval> reference_gaps(const Evidence &evidence) {
  constexpr double least = 0.3; // s; shorter ones are lost packets, which are not played either
  std::vector<Interval> gaps;
  if (!evidence.delay.points.empty())
    for (const Interval &run : silent_runs(evidence.ref_samples, evidence.setup.rate, least))
      if (cut_alone(evidence, run.begin, 1) || cut_alone(evidence, run.end, -1))
        gaps.push_back(run);
  return gaps;
}

/// Where a microphone that has a noise floor is silent in spite of an echo.
std::vector<Interval> mutes_of(const Evidence &evidence) {
  constexpr double least = 0.5, least_gap = 0.01, edge = 0.1; // s
  constexpr double due_db = 20;                               // above the noise
  constexpr double most_between = 0.01;                       // share of the recording
  constexpr size_t most_mutes = 3; // what is silent more often, and with most of the echo, is gated
  const int rate = evidence.setup.rate;
  const double due_power = from_db(due_db) * evidence.floor;
  const auto due_within = [&](double begin, double end) {
    return std::ranges::count_if(evidence.echo.blocks, [&](const EchoBlock &block) {
      return block.time > begin && block.time < end && block.predicted > due_power;
    });
  };
  std::vector<Interval> mutes;
  double between = 0; // s of silence that are no mutes
  std::ptrdiff_t silent = 0;
  for (const Interval &run : silent_runs(evidence.mic_samples, rate, least_gap)) {
    const auto due = due_within(run.begin + edge, run.end - edge);
    silent += due;
    if (due > 0 && run.end - run.begin >= least)
      mutes.push_back(run);
    else
      between += run.end - run.begin;
  }
  const bool gated = mutes.size() > most_mutes && 2 * silent > due_within(0, evidence.seconds());
  const bool has_floor = between < most_between * evidence.seconds() && evidence.delay.high >= 0;
  return has_floor && !gated ? mutes : std::vector<Interval>();
}

} // namespace

Check check_reference(const Evidence &evidence) {
  const double threshold = parameter(evidence.setup, "aec.double_talk", "far_active_peak");
  Check check{"reference", "Reference"};
  check.numbers = {{"peak", peak(evidence.ref_samples)}, {"active_s", evidence.ref_active_seconds}, {"gaps", nullptr}};
  check.limit = evidence.state_space()
                    ? fmt::format("some frames of at least {:.0f} dBov, none missing", state_space_sound_db)
                    : fmt::format("some frames with a peak of at least {:.0f}, none missing", threshold);
  check.found = fmt::format("peak {} of 32768, heard by the library for {:.1f} of {:.1f} s", peak(evidence.ref_samples),
                            evidence.ref_active_seconds, evidence.seconds());
  if (evidence.ref_active_seconds == 0) {
    check.state = State::wrong;
    check.found = (peak(evidence.ref_samples) == 0 ? "digital silence; " : "the reference is silent; ") + check.found;
    check.next =
        "Hand the samples that go to the loudspeaker to the library as the reference: without them no echo can "
        "be removed. If nobody spoke at the far end, record a call in which somebody does.";
    return check;
  }
  const std::vector<Interval> gaps = reference_gaps(evidence);
  check.numbers["gaps"] = gaps.size();
  check.state = gaps.empty() ? State::ok : State::wrong;
  if (check.state == State::wrong) {
    check.found = fmt::format("the reference breaks off in the middle of a sound, from {:.1f} to {:.1f} s{}, while the "
                              "loudspeaker goes on",
                              gaps.front().begin, gaps.front().end,
                              gaps.size() > 1 ? fmt::format(" and {} more times", gaps.size() - 1) : "");
    check.next =
        "Hand every sample that is played to the library: look for a queue that runs empty, or a second stream "
        "that is mixed in behind the place where the reference is taken.";
  }
  return check;
}

Check check_microphone(const Evidence &evidence) {
  Check check{"microphone", "Microphone"};
  const int highest = peak(evidence.mic_samples);
  check.numbers = {{"peak", highest}, {"mutes", nullptr}};
  check.limit = "no digital silence where an echo is due";
  check.found = highest > 0 ? fmt::format("peak {} of 32768", highest) : "digital silence";
  check.state = highest > 0 ? State::ok : State::wrong;
  if (highest == 0) {
    check.next = "Look for a muted or unconnected microphone, or a wrong channel.";
    return check;
  }
  const std::vector<Interval> mutes = mutes_of(evidence);
  check.numbers["mutes"] = mutes.size();
  if (mutes.empty())
    return check;
  check.state = State::wrong;
  check.found =
      fmt::format("the microphone is muted from {:.1f} to {:.1f} s{}, while the loudspeaker plays", mutes.front().begin,
                  mutes.front().end, mutes.size() > 1 ? fmt::format(" and {} more times", mutes.size() - 1) : "");
  check.next =
      "Mute behind the library, or record a call without: while the microphone is silent nothing is learnt, and "
      "what the filter knew may no longer hold behind it.";
  return check;
}

Check check_same_recording(const Evidence &evidence) {
  constexpr double least_db = -50;
  constexpr int around = 2; // samples about the delay of the echo
  Check check{"same_recording", "Two recordings"};
  check.limit = fmt::format("a difference above {:.0f} dB of the microphone", least_db);
  check.numbers["difference_db"] = nullptr;
  const double mic = energy(evidence.mic), ref = energy(evidence.ref);
  if (mic == 0 || ref == 0) {
    check.found = "could not be measured: one of them is silent";
    return check;
  }
  // What is left of the microphone after the best multiple of the reference; rounding alone leaves about -60 dB.
  const auto left_of = [&](std::ptrdiff_t behind) {
    const Signal moved = excerpt(evidence.ref, -behind, evidence.mic.size());
    double cross = 0;
    for (size_t i = 0; i < moved.size(); ++i)
      cross += evidence.mic[i] * moved[i];
    return std::max(1 - cross * cross / (mic * energy(moved)), 1e-12);
  };
  double left = left_of(0);
  const auto delay = std::ptrdiff_t(std::lround(evidence.delay.median * evidence.setup.rate));
  for (std::ptrdiff_t behind = delay - around; behind <= delay + around; ++behind)
    left = std::min(left, left_of(behind));
  const double left_db = 10 * std::log10(left);
  check.numbers["difference_db"] = left_db;
  check.found = fmt::format("they differ by {:.1f} dB of the microphone", left_db);
  check.state = left_db > least_db ? State::ok : State::wrong;
  if (check.state == State::wrong) {
    check.found = "microphone and reference are the same recording: " + check.found;
    check.next = "One file or channel was given twice, or the board loops the playback back into the capture.";
  }
  return check;
}

Check check_echo_present(const Evidence &evidence) {
  Check check{"echo_present", "Echo in the microphone"};
  check.limit = "an echo, when the loudspeaker is heard";
  check.numbers = {{"windows_with_echo", evidence.delay.points.size()}, {"echo_share", nullptr}};
  if (evidence.ref_active_seconds == 0 || peak(evidence.mic_samples) == 0) {
    check.found = "could not be measured: one of the two signals is silent";
    return check;
  }
  if (evidence.delay.points.empty()) {
    check.state = State::wrong;
    check.found = "no echo of this reference in the microphone, at no delay from -1 to 2 s: another call, or another "
                  "loudspeaker?";
    check.next =
        "If an echo is heard, this reference is not what the loudspeaker played: take it after every mixer, "
        "volume and effect. If none is heard (a headset, a loudspeaker that is off), there is nothing to cancel.";
    return check;
  }
  std::vector<double> shares;
  for (const EchoWindow &window : evidence.echo.windows)
    if (window.gain_db)
      shares.push_back(window.coherent);
  check.state = State::ok;
  check.found = fmt::format("found in {} windows", evidence.delay.points.size());
  if (!shares.empty()) {
    check.numbers["echo_share"] = median(shares);
    check.found += fmt::format("; where it is clear, {:.0f} % of the microphone's power follow the reference linearly",
                               100 * median(shares));
  }
  return check;
}

} // namespace qv::tool::diagnose
