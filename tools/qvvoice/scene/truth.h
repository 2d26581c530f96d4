/// @file truth.h  What is known about a recording: the [truth] of scene.toml.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "signal/activity.h"

namespace qv::tool::scene {

/// Delay of the echo behind the reference from one moment on, in s.
struct DelayPiece {
  double from;  ///< s
  double delay; ///< at `from`, first arrival at the microphone: devices and air
  double slope; ///< s per s, from clocks that differ
};

struct EchoEvent {
  double time;    ///< s
  bool new_delay; ///< the bulk delay jumps
  bool new_path;  ///< the loudspeaker's place or volume changes; neither: a stream is whole again after a gap
};

/// A recording of one's own may have any part of it.
struct Truth {
  std::optional<std::vector<Interval>> far;  ///< when the microphone hears the far end
  std::optional<std::vector<Interval>> near; ///< when the near end talks
  std::vector<DelayPiece> delay;             ///< in order of time; empty: unknown
  std::vector<EchoEvent> events;
  std::vector<Interval> muted{};        ///< the microphone's stream is silent
  std::vector<Interval> no_reference{}; ///< the echo of what the reference's stream left out
  std::optional<double> distortion{};   ///< dB, what the loudspeaker adds to its signal, see distortion_db()
};

/// @return s; nothing when unknown
std::optional<double> delay_at(const Truth &truth, double time);

/// The [truth] of a scene.toml; nothing when it has none. Other tables are not looked at.
/// @throws InputError with file, line, key, what was found and what would be right
std::optional<Truth> read_truth(const std::string &path);

/// The same of a text. @param path  for messages
std::optional<Truth> parse_truth(std::string_view text, const std::string &path);

/// The [truth] of a scene.toml. Times to the microsecond.
std::string truth_text(const Truth &truth);

} // namespace qv::tool::scene
