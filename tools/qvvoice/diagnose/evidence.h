/// @file evidence.h  What the checks look at: a recording, its run through the library, and what both tell.
#pragma once

#include <optional>
#include <vector>

#include "call/run.h"
#include "call/stages.h"
#include "diagnose/alignment.h"
#include "diagnose/delay_history.h"
#include "diagnose/echo_model.h"

namespace qv::tool::diagnose {

struct Evidence {
  using Trace = std::vector<QvVoiceTrace>;

  /// Runs nothing and keeps references to its arguments.
  /// @param sent   output of the transmit path, in time with the microphone
  /// @param trace  [frames]
  Evidence(const Setup &setup, const Samples &mic, const Samples &ref, const Samples &sent, const Trace &trace);

  const Setup &setup;
  EchoCanceller canceller; ///< in use
  const Samples &mic_samples, &ref_samples;
  const Trace &trace;
  Signal mic, ref, out;      ///< of one length
  double ref_active_seconds; ///< in library frames that the canceller takes for sound
  Alignment alignment;       ///< the reference on the microphone's clock
  DelayHistory delay;        ///< behind that reference
  EchoModel echo;
  std::vector<double> out_blocks; ///< power of the output in echo.blocks
  double floor;                   ///< power of the microphone's quiet blocks

  double frame_seconds() const { return double(setup.frame_len) / setup.rate; }
  double seconds() const { return double(mic.size()) / setup.rate; }
  bool state_space() const { return canceller == EchoCanceller::state_space; }
  const QvVoiceTrace &frame_at(double time) const; ///< of the trace, the last one from its end on
};

inline constexpr double state_space_sound_db = -70; ///< dBov of a frame that may be heard, as that canceller has it

/// First element of a field of the parameters, named as in their text form, in the field's unit.
double parameter(const Setup &setup, std::string_view section, std::string_view key);

} // namespace qv::tool::diagnose
