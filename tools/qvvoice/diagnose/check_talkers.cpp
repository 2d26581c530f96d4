// What else is in the two signals: the near end in the reference, noise, and how loud the echo is beside the talker.

#include "diagnose/checks.h"
#include "diagnose/talk.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace qv::tool::diagnose {

namespace {

constexpr size_t fewest_windows = 4; // with the near end in the reference

/// s; of the windows in which the microphone follows the reference, the rest may be the near end's.
double echo_delay(const DelayHistory &delay) {
  std::vector<double> behind;
  for (const DelayPoint &point : delay.points)
    if (point.delay > 0.003)
      behind.push_back(point.delay);
  return behind.empty() ? delay.median : median(behind);
}

/// What the microphone holds before the echo, in windows in which it stands out as the echo does in others: of sounds
/// that repeat themselves (music) the correlation has lower peaks everywhere.
std::vector<DelayPoint> before_the_echo(const Evidence &evidence) {
  constexpr double apart = 0.005; // s: what comes so long before the echo is none of it
  constexpr double as_clear = 0.8;
  constexpr double window = 1.25; // s
  const double echo = echo_delay(evidence.delay);
  const auto find = [&](double latest) {
    const DelaySearch search{
        .window = window, .hop = window / 3, .earliest = -1, .latest = latest, .least_strength = 12};
    return delay_points(evidence.mic, evidence.alignment.ref, evidence.setup.rate, search);
  };
  std::vector<DelayPoint> before = find(std::min(0.002, echo - apart));
  if (before.size() < fewest_windows)
    return {};
  const std::vector<DelayPoint> all = find(std::max(0.5, echo + 0.1));
  std::erase_if(before, [&](const DelayPoint &point) {
    return std::ranges::any_of(all, [&](const DelayPoint &other) {
      return other.time == point.time && point.strength < as_clear * other.strength;
    });
  });
  return agreeing(before, window);
}

std::vector<double> delays_of(const std::vector<DelayPoint> &points) {
  std::vector<double> delays;
  for (const DelayPoint &point : points)
    delays.push_back(point.delay);
  return delays;
}

/// They share one delay, and an echo comes again after them at its own: else the delay has only jumped.
bool between_echoes(const std::vector<DelayPoint> &points, const Evidence &evidence) {
  constexpr double same = 0.002; // s
  if (points.size() < fewest_windows || quantile(delays_of(points), 0.9) - quantile(delays_of(points), 0.1) > same)
    return false;
  const double after = points.front().time + evidence.alignment.window, own = echo_delay(evidence.delay);
  return std::ranges::any_of(evidence.delay.points, [&](const DelayPoint &echo) {
    return echo.time > after && std::abs(echo.delay - own) < same;
  });
}

} // namespace

Check check_near_in_reference(const Evidence &evidence) {
  Check check{"near_in_reference", "Near end in the reference"};
  check.numbers = {{"windows", nullptr}, {"late_ms", nullptr}};
  check.limit = "nothing in the reference that the microphone records at the same time or before";
  const DelayHistory &delay = evidence.delay;
  if (delay.points.empty() || delay.high < 0) {
    check.found = delay.points.empty() ? "could not be measured: no echo was found"
                                       : "could not be measured: the microphone leads the reference";
    return check;
  }
  const std::vector<DelayPoint> points = before_the_echo(evidence);
  check.numbers["windows"] = points.size();
  check.state = between_echoes(points, evidence) ? State::wrong : State::ok;
  check.found = "not found";
  if (check.state == State::ok)
    return check;
  const double late = -1000 * median(delays_of(points));
  check.numbers["late_ms"] = late;
  check.found = fmt::format("the reference holds what the microphone records, {:.1f} ms later (in {} windows)", late,
                            points.size());
  check.next = "The canceller takes what is in the reference for echo, and removes the talker. Look for a sidetone, a "
               "mixer that sends the microphone to the loudspeaker, or a far end that sends the call back.";
  return check;
}

Check check_noise(const Evidence &evidence) {
  constexpr double least_db = 13; // speech peaks lie some 10 dB above its mean: below, the two are as loud
  Check check{"noise", "Noise"};
  check.limit = fmt::format("talk and echo at least {:.0f} dB above it", least_db);
  check.numbers = {{"floor_dbov", nullptr}, {"range_db", nullptr}};
  std::vector<double> powers;
  for (const EchoBlock &block : evidence.echo.blocks)
    if (block.mic > 0)
      powers.push_back(block.mic);
  if (powers.empty()) {
    check.found = "could not be measured: the microphone is silent";
    return check;
  }
  const double loud = quantile(powers, 0.95), range = 10 * std::log10(std::max(loud / evidence.floor - 1, 1e-3));
  check.numbers = {{"floor_dbov", *to_db(evidence.floor)}, {"range_db", range}};
  check.found =
      fmt::format("{:.1f} dBov; the loudest twentieth stands {:.1f} dB above it", *to_db(evidence.floor), range);
  check.state = range >= least_db ? State::ok : State::wrong;
  if (check.state == State::wrong) {
    check.found = "the noise is nearly as loud as what is said: " + check.found;
    check.next =
        "Bring the microphone nearer to the talker or away from the noise (a fan, the wind), or look for a hum "
        "or a hiss of the converter: no canceller finds its echo below the noise.";
  }
  return check;
}

Check check_coupling(const Evidence &evidence) {
  constexpr double most_db = 18, least_seconds = 0.5;
  Check check{"coupling", "Echo beside the near end"};
  check.limit = fmt::format("an echo at most {:.0f} dB above the near end", most_db);
  check.numbers["echo_over_near_db"] = nullptr;
  const Talk talk = judge_talk(evidence);
  if (!evidence.echo.found || talk.near.seconds() < least_seconds || talk.echo.seconds() < least_seconds) {
    check.found = "could not be measured: it takes echo alone and the near end alone";
    return check;
  }
  const double over =
      10 * std::log10(talk.echo.mic / double(talk.echo.count) / (talk.near.mic / double(talk.near.count)));
  check.numbers["echo_over_near_db"] = over;
  check.found = fmt::format("{:.1f} dB {} the near end", std::abs(over), over > 0 ? "above" : "below");
  check.state = over <= most_db ? State::ok : State::wrong;
  if (check.state == State::wrong) {
    check.found = "the echo is far louder than the talker: " + check.found;
    check.next =
        "Turn the loudspeaker down, move it or the talker, or decouple the microphone from the case: of a near "
        "end so far below the echo nothing is left in double talk.";
  }
  return check;
}

} // namespace qv::tool::diagnose
