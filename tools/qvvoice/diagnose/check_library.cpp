// What the library makes of the recording: the echo that it leaves, and the talker that it keeps.

#include "diagnose/checks.h"
#include "diagnose/talk.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "state_space/shape.h"

namespace qv::tool::diagnose {
namespace {

double mean_agc_gain_db(const Evidence::Trace &trace) {
  double sum = 0;
  for (const QvVoiceTrace &frame : trace)
    sum += double(frame.tx_agc_gain) * double(frame.tx_agc_gain);
  return trace.empty() || sum <= 0 ? 0 : 10 * std::log10(sum / double(trace.size()));
}

/// What else may help, where nothing is wrong with the recording.
std::string against_residual(const Evidence &evidence) {
  if (!evidence.state_space())
    return "raise aec.suppressor.exponent or aec.suppressor.odds_divisor, which cut deeper, and "
           "listen to what that costs in double talk.";
  std::string advice = "lower echo_control.care or raise echo_control.depth_db, which cut deeper, and listen to what "
                       "that costs in double talk";
  if (parameter(evidence.setup, "echo_control", "tail_ms") < double(state_space::longest_tail_ms))
    advice += "; raise echo_control.tail_ms where the room is reverberant or the delay moves";
  if (parameter(evidence.setup, "echo_control", "background") > 0)
    advice += "; echo_control.background is the noise that is heard in place of the echo";
  return advice + '.';
}

} // namespace

Check check_residual_echo(const Evidence &evidence) {
  Check check{"residual_echo", "Residual echo"};
  check.limit = fmt::format("{:.0f} dB below the echo, or within {:.0f} dB of the microphone's noise", gone_db,
                            gone_above_noise_db);
  check.numbers = {{"erle_db", nullptr},
                   {"residual_dbov", nullptr},
                   {"echo_dbov", nullptr},
                   {"judged_s", nullptr},
                   {"worst_s", nullptr}};
  const Talk talk = judge_talk(evidence);
  const Judged &echo = talk.echo;
  if (!evidence.echo.found || echo.seconds() < least_judged_seconds) {
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
  check.state = echo_is_left(evidence, echo) ? State::wrong : State::ok;
  if (check.state != State::wrong)
    return check;
  check.found += fmt::format(", most of it at {} s", talk.worst_echo_second);
  check.next = "See what is wrong above. If nothing is: " + against_residual(evidence);
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
    check.next =
        fmt::format("The library takes near-end speech for noise or echo: lower tx.anr.noise_scale, {}and look "
                    "whether the reference holds the near end.",
                    evidence.state_space() ? "raise echo_control.care, " : "");
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
    check.next =
        fmt::format("Double talk is half duplex: {}, and listen for echo.",
                    evidence.state_space() ? "raise echo_control.care"
                                           : "lower aec.double_talk.count_min, aec.double_talk.residual_low or "
                                             "aec.double_talk.ratio_low");
  }
  return check;
}

} // namespace qv::tool::diagnose
