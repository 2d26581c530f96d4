/// @file speech.h  Where the talkers' words come from.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "scene/random.h"
#include "signal/signal.h"

namespace qv::tool::scene {

/// A voice of the recorded prompts that Debian packages.
struct Voice {
  const char *name;    ///< in scene files: "en"
  const char *folder;  ///< of its prompts
  const char *package; ///< "-wav" (8000 Hz) or "-g722" (16000 Hz) follows
};

const std::vector<Voice> &voices();

/// A voice, or recordings of one's own.
struct Speech {
  std::string voice;              ///< of voices(); empty: the files
  std::vector<std::string> files; ///< whatever the tool reads, mono
};

/// Reads speech at one rate, each recording once.
class SpeechReader {
public:
  explicit SpeechReader(int rate) : rate_(rate) {}

  /// Speech without an end: the recordings in an order that `random` shuffles, with short pauses, again and again.
  /// @throws InputError when a recording cannot be read; it names the package that would have it
  Signal stream(const Speech &speech, size_t count, Random random);

  /// The whole of one recording, converted to the rate.
  const Signal &recording(const std::string &path);

  /// Where the recordings lie. @throws InputError when a voice is not installed; it names the package
  std::vector<std::string> paths(const Speech &speech) const;

private:
  int rate_;
  std::map<std::string, Signal> read_;
};

} // namespace qv::tool::scene
