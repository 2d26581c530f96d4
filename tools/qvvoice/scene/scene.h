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

/// Speech, or music of the tool's own making.
enum class Sound { speech, music };

struct Talker {
  Speech speech;
  double level; ///< active speech level (ITU-T P.56), dBov
  std::vector<Interval> talks;
  Sound sound = Sound::speech;
};

/// What changes on the echo path at one moment.
struct Change {
  double time;                      ///< s
  std::optional<double> delay;      ///< s, new bulk delay
  std::optional<Point> loudspeaker; ///< new place
  std::optional<double> gain;       ///< dB, loudspeaker volume against the start
};

/// A loudspeaker that distorts with memory; see driven().
struct Driver {
  double resonance;    ///< Hz
  double quality;      ///< of the resonance
  double limit;        ///< dBFS, low-passed signal at which the force of the motor has fallen to half
  double heating;      ///< dB of gain lost at the mean power of the signal
  double heating_time; ///< s, time constant
};

enum class Clipping { soft, hard };

struct Echo {
  double delay;                     ///< s, of everything but the way through the air
  double to_near;                   ///< dB, active level of the echo over that of the near end, both at the microphone
  std::optional<double> saturation; ///< dB by which the reference's peak exceeds the loudspeaker's limit
  Clipping clipping = Clipping::soft; ///< shape of that limit
  std::optional<Driver> driver;
  double drift;                ///< ppm by which the capture clock is faster than the playback clock
  std::vector<Change> changes; ///< in order of time
};

enum class Side { microphone, reference };
enum class FaultKind { lost, repeated, silent };

/// Something that goes wrong in one of the two streams on its way to the application.
struct Fault {
  double time; ///< s, on the clock of the stream as it arrives
  Side side;
  FaultKind kind; ///< lost: the rest moves up; repeated: the last frame comes again, the rest moves back
  double seconds; ///< so much is lost, repeated or silent
  double frame;   ///< s
};

enum class NoiseKind { none, white, pink, babble, file };

struct Noise {
  NoiseKind kind;
  double snr; ///< dB, active near-end level over noise level
  std::string file;
  std::vector<std::string> voices; ///< of babble
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
  std::vector<Fault> faults; ///< in order of time
  std::string text;          ///< as read, without what follows a [truth]
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
