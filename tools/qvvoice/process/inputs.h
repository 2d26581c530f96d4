/// @file inputs.h  The recordings of a call, read and brought to one rate.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "audio/audio.h"
#include "process/options.h"

namespace qv::tool::process {

struct Input {
  std::string role; ///< its option: "mic", "ref" or "far"
  Source source;
  Recording recording;

  const std::vector<int16_t> &samples() const { return recording.audio.samples; }
};

struct Inputs {
  std::optional<Input> mic, ref, far;
  int rate = 0;                   ///< of all of them, Hz
  std::vector<std::string> notes; ///< what was done to them: conversion, clipping, continuation with silence

  std::vector<const Input *> given() const;
};

/// At Options::rate; by default 8000 Hz if the first file has no more, else 16000 Hz.
/// @throws InputError for a file that cannot be used
Inputs read_inputs(const Options &options);

} // namespace qv::tool::process
