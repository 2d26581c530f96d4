/// @file inputs.h  The recordings of a call at one rate, read as they are needed.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "audio/level.h"
#include "audio/stream.h"
#include "process/options.h"

namespace qv::tool::process {

class Input {
public:
  /// @param role    its option: "mic", "ref" or "far"
  /// @param reader  shared by inputs that are channels of one file
  Input(std::string role, const Source &source, std::shared_ptr<AudioReader> reader, int rate);

  /// The next samples, fewer than asked for only at the end. @throws InputError for a file that cannot be used
  size_t read(std::span<int16_t> samples);
  std::vector<int16_t> read_all(); ///< likewise

  const std::string &role() const { return role_; }
  std::string name() const { return input_name(source_.path); } ///< for messages
  const Source &source() const { return source_; }
  int file_rate() const { return reader_->rate(); } ///< Hz
  const AudioStream &stream() const { return stream_; }
  const LevelMeter &level() const { return level_; } ///< of what was read so far

private:
  std::string role_;
  Source source_;
  std::shared_ptr<AudioReader> reader_;
  AudioStream stream_;
  LevelMeter level_;
};

struct Inputs {
  std::optional<Input> mic, ref, far;
  int rate = 0; ///< of all of them, Hz

  std::vector<const Input *> given() const;
  double stated_seconds() const; ///< of the longest; 0 when not all are known

  /// What was done to them, when all are read: conversion, clipping, continuation with silence.
  std::vector<std::string> notes() const;
};

/// At Options::rate; by default 8000 Hz if the first file has no more, else 16000 Hz.
/// @throws InputError for a file that cannot be used
Inputs open_inputs(const Options &options);

} // namespace qv::tool::process
