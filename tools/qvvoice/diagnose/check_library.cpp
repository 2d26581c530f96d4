// What the library makes of the recording: from its trace and its output.

#include "diagnose/checks.h"
#include "diagnose/talk.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace qv::tool::diagnose {
namespace {

double ms(double seconds) { return 1000 * seconds; }

double mean_agc_gain_db(const Evidence::Trace &trace) {
  double sum = 0;
  for (const QvVoiceTrace &frame : trace)
    sum += double(frame.tx_agc_gain) * double(frame.tx_agc_gain);
  return trace.empty() || sum <= 0 ? 0 : 10 * std::log10(sum / double(trace.size()));
}

constexpr const char *canceller_off = "could not be measured: the echo canceller is off";

bool canceller_on(const Evidence &evidence) { return parameter(evidence.setup, "aec", "enable") == 1; }

} // namespace

Check check_canceller_on(const Evidence &evidence) {
  const auto on = [&](const char *key) { return parameter(evidence.setup, "aec.suppressor", key) == 1; };
  Check check{"canceller_on", "Echo canceller"};
  const bool suppresses = on("echo_ratio") || on("coherence");
  check.numbers = {{"canceller", canceller_on(evidence)}, {"suppressor", suppresses}};
  check.limit = "canceller and one suppressor on";
  check.found = fmt::format("canceller {}, suppressor {} ({})", canceller_on(evidence) ? "on" : "off",
                            suppresses ? "on" : "off", evidence.setup.para_source);
  check.state = !canceller_on(evidence) ? State::wrong : !suppresses ? State::note : State::ok;
  if (check.state != State::ok)
    check.next =
        "Set aec.enable and aec.suppressor.coherence (or aec.suppressor.echo_ratio) to true in the parameter file.";
  return check;
}

Check check_delay_found(const Evidence &evidence) {
  Check check{"delay_found", "Delay found by the library"};
  const double block = evidence.frame_seconds() / blocks_per_frame, tail = filter_frames * evidence.frame_seconds();
  check.limit =
      fmt::format("{:.0f} ms before to {:.0f} ms behind the echo, most of the time", ms(tail - block), ms(block));
  check.numbers = {{"error_ms", nullptr}, {"share_found", nullptr}, {"first_found_s", nullptr}};
  if (!canceller_on(evidence) || evidence.delay.points.empty()) {
    check.found = canceller_on(evidence) ? "could not be measured: no echo was found" : canceller_off;
    return check;
  }
  std::vector<double> errors;
  size_t found = 0;
  std::optional<double> first;
  for (const DelayPoint &point : evidence.delay.points) {
    const auto frame = std::min(size_t(point.time / evidence.frame_seconds()), evidence.trace.size() - 1);
    const double error = double(evidence.trace[frame].echo_delay) / evidence.setup.rate - point.delay;
    errors.push_back(error);
    if (error >= -(tail - block) && error <= block) {
      ++found;
      first = first.value_or(point.time);
    }
  }
  const double error = median(errors), share = double(found) / double(errors.size());
  check.numbers = {{"error_ms", ms(error)}, {"share_found", share}, {"first_found_s", nullptr}};
  if (first)
    check.numbers["first_found_s"] = *first;
  check.found = fmt::format("{:.1f} ms {} the echo, right in {:.0f} % of the windows", ms(std::abs(error)),
                            error > 0 ? "behind" : "before", 100 * share);
  check.state = share < 0.7 ? State::wrong : error > 0.001 ? State::note : State::ok;
  if (check.state == State::wrong)
    check.next = "Without the right delay the filter models nothing. If the delay holds still, give it: "
                 "aec.track_delay = false and aec.echo_delay; otherwise see the delay's reach and steadiness.";
  else if (check.state == State::note)
    check.next =
        fmt::format("The filter cannot model what arrives before it; the suppressor has to do more. If the delay "
                    "holds still: aec.track_delay = false, aec.echo_delay = {}.",
                    std::max(0L, std::lround((evidence.delay.low - 0.001) * evidence.setup.rate)));
  return check;
}

Check check_filter(const Evidence &evidence) {
  Check check{"filter", "Adaptive filter"};
  check.limit = fmt::format("after {:.0f} s of reference", settle_seconds);
  check.numbers = {
      {"adapted_s", nullptr}, {"active_before_s", nullptr}, {"resets", nullptr}, {"linear_erle_db", nullptr}};
  if (!canceller_on(evidence) || evidence.ref_active_seconds < settle_seconds) {
    check.found = canceller_on(evidence)
                      ? fmt::format("could not be measured: it takes {:.0f} s of active reference", settle_seconds)
                      : canceller_off;
    return check;
  }
  const auto &trace = evidence.trace;
  const auto adapted = std::ranges::find(trace, 1, &QvVoiceTrace::filter_adapted);
  const auto resets = std::ranges::count(trace, 1, &QvVoiceTrace::filter_reset);
  const double start = active_for(evidence, block_hop), due = active_for(evidence, settle_seconds);
  check.numbers["resets"] = resets;
  if (adapted == trace.end()) {
    check.state = State::wrong;
    check.found = "never trained";
    check.next = "The filter finds nothing to learn: see the echo, its delay and the levels above.";
    return check;
  }
  const double time = double(adapted - trace.begin()) * evidence.frame_seconds();
  std::vector<double> erle;
  for (const EchoBlock &block : evidence.echo.blocks)
    if (block.time > due && in_echo_alone(evidence, block))
      erle.push_back(
          double(trace[std::min(size_t(block.time / evidence.frame_seconds()), trace.size() - 1)].linear_erle_db));
  check.numbers["adapted_s"] = time;
  check.numbers["active_before_s"] = std::max(time - start, 0.0);
  check.found = fmt::format("trained after {:.1f} s ({:.1f} s after the reference began), {} resets", time,
                            std::max(time - start, 0.0), resets);
  if (!erle.empty()) {
    check.numbers["linear_erle_db"] = median(erle);
    check.found += fmt::format("; it takes {:.1f} dB off the echo", median(erle));
  }
  check.state = time > due || resets > 0 ? State::wrong : State::ok;
  if (check.state == State::wrong)
    check.next = "It learns late or loses what it learnt: see delay, drift, clipping and volume above.";
  return check;
}

Check check_residual_echo(const Evidence &evidence) {
  constexpr double least_db = 30, above_noise_db = 6, least_seconds = 1;
  Check check{"residual_echo", "Residual echo"};
  check.limit =
      fmt::format("{:.0f} dB below the echo, or within {:.0f} dB of the microphone's noise", least_db, above_noise_db);
  check.numbers = {{"erle_db", nullptr},
                   {"residual_dbov", nullptr},
                   {"echo_dbov", nullptr},
                   {"judged_s", nullptr},
                   {"worst_s", nullptr}};
  const Talk talk = judge_talk(evidence);
  const Judged &echo = talk.echo;
  if (!evidence.echo.found || echo.seconds() < least_seconds) {
    check.found = "could not be measured: there is less than a second of echo alone after the filter's time";
    return check;
  }
  const auto level = to_db(echo.out / double(echo.count));
  const double erle = echo.reduction_db();
  check.numbers = {{"erle_db", level ? nlohmann::json(erle) : nullptr},
                   {"residual_dbov", level ? nlohmann::json(*level) : nullptr},
                   {"echo_dbov", *to_db(echo.mic / double(echo.count))},
                   {"judged_s", echo.seconds()},
                   {"worst_s", talk.worst_echo_second}};
  check.found = level ? fmt::format("{:.1f} dBov, {:.1f} dB below the echo", *level, erle) : "none: digital silence";
  check.found += fmt::format(", over {:.1f} s of echo alone", echo.seconds());
  const double noise_limit = from_db(above_noise_db) * evidence.floor * double(echo.count);
  check.state = erle >= least_db || echo.out <= noise_limit ? State::ok : State::wrong;
  if (check.state != State::wrong)
    return check;
  check.found += fmt::format(", most of it at {} s", talk.worst_echo_second);
  check.next = "See what is wrong above. If nothing is: raise aec.suppressor.exponent or aec.suppressor.odds_divisor, "
               "which cut deeper, and "
               "listen to what that costs in double talk.";
  return check;
}

Check check_near_end(const Evidence &evidence) {
  constexpr double most_loss_db = 6, most_lost = 0.1, least_seconds = 1;
  Check check{"near_end", "Near end"};
  check.limit =
      fmt::format("at most {:.0f} dB quieter while it talks alone, {:.0f} % of it lost", most_loss_db, 100 * most_lost);
  check.numbers = {{"loss_db", nullptr},
                   {"lost_share", nullptr},
                   {"double_talk_loss_db", nullptr},
                   {"double_talk_lost_share", nullptr}};
  const Talk talk = judge_talk(evidence);
  if (talk.near.seconds() < least_seconds) {
    check.found = "could not be measured: there is less than a second of the near end alone";
    return check;
  }
  const double agc = mean_agc_gain_db(evidence.trace);
  const double loss = talk.near.reduction_db() + agc;
  check.numbers["loss_db"] = loss;
  check.numbers["lost_share"] = talk.near.lost_share();
  check.found = fmt::format("{:.1f} dB quieter (AGC left out), {:.0f} % lost, over {:.1f} s alone", loss,
                            100 * talk.near.lost_share(), talk.near.seconds());
  check.state = loss > most_loss_db || talk.near.lost_share() > most_lost ? State::wrong : State::ok;
  if (check.state == State::wrong)
    check.next = "The library takes near-end speech for noise or echo: lower tx.anr.noise_scale, and look whether the "
                 "reference holds the near end.";
  if (talk.both.seconds() < least_seconds) {
    check.found += "; double talk could not be measured";
    return check;
  }
  check.numbers["double_talk_loss_db"] = talk.both.reduction_db() + agc;
  check.numbers["double_talk_lost_share"] = talk.both.lost_share();
  check.found += fmt::format("; in double talk {:.1f} dB quieter, {:.0f} % lost, over {:.1f} s",
                             talk.both.reduction_db() + agc, 100 * talk.both.lost_share(), talk.both.seconds());
  if (check.state == State::ok && talk.both.lost_share() > 0.5) {
    check.state = State::note;
    check.next = "Double talk is half duplex: lower aec.double_talk.count_min, aec.double_talk.residual_low or "
                 "aec.double_talk.ratio_low, and listen for echo.";
  }
  return check;
}

} // namespace qv::tool::diagnose
