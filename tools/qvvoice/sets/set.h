/// @file set.h  Sets of recordings: a folder, or a manifest, whose lines name recordings or draw them.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "scene/speech.h"
#include "sets/entry.h"

namespace qv::tool::sets {

/// What a set names, unchecked.
/// @param path  a folder: every folder at any depth with scene.toml, mic.wav or ref.wav, sorted by path; or a manifest,
///              CSV with a line of column names or JSON lines
/// @param faults  gets what cannot be read, line by line
/// @throws InputError when there is no such set, or nothing is in it
std::vector<Entry> entries(const std::string &path, Faults &faults);

/// Opens what every entry names, as far as headers go, and fills in rate and length.
/// @param faults  gets missing and wrong files, rates that differ or are not served, recordings of less than a second,
///                references of less than half the microphone's length, voices that are not installed, names given
///                twice
void check(std::vector<Entry> &entries, Faults &faults);

/// What a set names, or what it names and check() has opened. Prints every fault on standard error.
/// @throws InputError when there are any
std::vector<Entry> listed(const std::string &path);
std::vector<Entry> checked(const std::string &path);

/// Reads recordings and makes scenes.
class Reader {
public:
  /// @throws InputError when it cannot be read
  measure::Subject read(const Entry &entry);

private:
  std::map<int, scene::SpeechReader> speech_; ///< by rate, Hz
};

} // namespace qv::tool::sets
