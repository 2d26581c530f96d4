/// @file scene.h  A call as its scene file describes it.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "scene/room.h"
#include "scene/speech.h"
#include "signal/activity.h"

namespace qv::tool::scene {

struct Talker {
  Speech speech;
  double level; ///< active speech level (ITU-T P.56), dBov
  std::vector<Interval> talks;
};

/// What changes on the echo path at one moment.
struct Change {
  double time;                      ///< s
  std::optional<double> delay;      ///< s, new bulk delay
  std::optional<Point> loudspeaker; ///< new place
  std::optional<double> gain;       ///< dB, loudspeaker volume against the start
};

struct Echo {
  double delay;                     ///< s, of everything but the way through the air
  double to_near;                   ///< dB, active level of the echo over that of the near end, both at the microphone
  std::optional<double> saturation; ///< dB by which the reference's peak exceeds the loudspeaker's limit
  double drift;                     ///< ppm by which the capture clock is faster than the playback clock
  std::vector<Change> changes;      ///< in order of time
};

enum class NoiseKind { none, white, pink, babble, file };

struct Noise {
  NoiseKind kind;
  double snr; ///< dB, active near-end level over noise level
  std::string file;
};

struct Scene {
  std::string title;
  double duration; ///< s
  uint64_t seed;
  Room room;
  Point loudspeaker, microphone, talker;
  Talker far;  ///< level of the reference
  Talker near; ///< level at the microphone; that of echo and noise hang on it even when nobody talks
  Echo echo;
  Noise noise;
  std::string text; ///< as read, without what follows a [truth]
};

/// Reads a scene file; docs/scenes.md describes its keys. Paths in it are relative to its folder.
/// @throws InputError with file, line, key, what was found and what would be right
Scene read_scene(const std::string &path);

/// The same of a text. @param path  as if it had been read from there
Scene parse_scene(std::string_view text, const std::string &path);

/// A scene that is built into the tool.
struct BuiltIn {
  std::string_view name;
  std::string_view text;
};

/// By name. The array is generated from scenes/*.toml.
std::span<const BuiltIn> built_in();

} // namespace qv::tool::scene
