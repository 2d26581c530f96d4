/// @file evidence.h  What the checks look at: a recording, its run through the library, and what both tell.
#pragma once

#include <optional>
#include <vector>

#include "call/run.h"
#include "diagnose/echo_model.h"

namespace qv::tool::diagnose {

/// The delay of the echo over the recording, less windows that disagree with both neighbours.
struct DelayHistory {
  struct Jump {
    double time;     ///< s
    double from, to; ///< s
  };
  std::vector<DelayPoint> points;
  std::vector<Jump> jumps;              ///< more than 2 ms at once
  double low = 0, median = 0, high = 0; ///< s: 10th, 50th and 90th percentile; of no meaning without points
  std::optional<double> drift_ppm;      ///< slope between the jumps; nothing from less than 10 s in one piece
};

DelayHistory delay_history(const std::vector<DelayPoint> &points);

struct Evidence {
  using Trace = std::vector<QvVoiceTrace>;

  /// Runs nothing and keeps references to its arguments.
  /// @param sent   output of the transmit path, in time with the microphone
  /// @param trace  [frames]
  Evidence(const Setup &setup, const Samples &mic, const Samples &ref, const Samples &sent, const Trace &trace);

  const Setup &setup;
  const Samples &mic_samples, &ref_samples;
  const Trace &trace;
  Signal mic, ref, out;      ///< of one length
  double ref_active_seconds; ///< in library frames with a peak that the library takes for sound
  DelayHistory delay;
  EchoModel echo;
  std::vector<double> out_blocks; ///< power of the output in echo.blocks
  double floor;                   ///< power of the microphone's quiet blocks

  double frame_seconds() const { return double(setup.frame_len) / setup.rate; }
  double seconds() const { return double(mic.size()) / setup.rate; }
};

/// First element of a field of the parameters, named as in their text form, in the field's unit.
double parameter(const Setup &setup, std::string_view section, std::string_view key);

} // namespace qv::tool::diagnose
