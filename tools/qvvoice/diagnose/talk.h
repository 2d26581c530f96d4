/// @file talk.h  Who is heard when, judged from the recording alone, and what becomes of it in the output.
#pragma once

#include "diagnose/check.h"
#include "diagnose/evidence.h"

namespace qv::tool::diagnose {

inline constexpr double settle_seconds = 3; ///< of active reference, granted to delay and filter

/// First time by which the reference has been active for so long; the end when it never has.
double active_for(const Evidence &evidence, double seconds);

/// The block stands 15 dB above the noise and is mostly echo, and the microphone follows the reference in the
/// seconds around it.
bool in_echo_alone(const Evidence &evidence, const EchoBlock &block);

/// Blocks of one kind, in microphone and output.
struct Judged {
  size_t count = 0, lost = 0; ///< lost: the output is more than 20 dB below the microphone
  double mic = 0, out = 0;    ///< energies

  void add(double mic_power, double out_power);
  double seconds() const { return double(count) * block_hop; }
  double lost_share() const { return double(lost) / double(count); }
  double reduction_db() const; ///< of the output against the microphone
};

struct Talk {
  Judged echo;               ///< the echo alone, once the filter has had its time
  int worst_echo_second = 0; ///< in which most of that echo is left
  Judged near;               ///< the near end alone
  Judged both;               ///< both, the near end at least 3 dB above the echo
};

Talk judge_talk(const Evidence &evidence);

inline constexpr double least_judged_seconds = 1;
inline constexpr double gone_db = 30, gone_above_noise_db = 6; ///< below the echo, or above the microphone's noise

/// Echo is left in the output; false where there is too little of it alone to say.
bool echo_is_left(const Evidence &evidence, const Judged &echo);

/// What the two-path canceller cannot follow is wrong. With the state-space canceller, which can, it is worth knowing,
/// and wrong where echo is left all the same.
State state_of_change(const Evidence &evidence);

} // namespace qv::tool::diagnose
