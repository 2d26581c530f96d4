/// @file subject.h  A recording that is to be measured, what is known about it, and what was sent for it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "call/run.h"
#include "call/setup.h"
#include "scene/truth.h"
#include "signal/signal.h"

namespace qv::tool::measure {

/// All signals are as long as the microphone's.
struct Subject {
  std::string name;
  int rate; ///< Hz
  std::vector<int16_t> mic, ref;
  std::optional<Signal> near, echo; ///< parts of the microphone signal by themselves
  std::optional<scene::Truth> truth;
  std::optional<Signal> noise{}; ///< the third part
};

/// Where a recording lies. Of the last four only those that are known have a path.
struct RecordingFiles {
  std::string mic, ref, near{}, echo{}, noise{}, scene{};
};

/// The files of a folder: mic.wav and ref.wav and, as far as they are there, near.wav, echo.wav, noise.wav and
/// scene.toml.
RecordingFiles files_in(const std::string &folder);

/// @throws InputError when a file cannot be used; all must have the microphone's rate, 8000 or 16000 Hz
Subject read_files(const std::string &name, const RecordingFiles &files);

/// A folder with mic.wav and ref.wav and, as far as known, near.wav, echo.wav, noise.wav and scene.toml.
/// @throws InputError when a file cannot be used; all must have the microphone's rate, 8000 or 16000 Hz
Subject read_folder(const std::string &folder);

/// What was sent, in time with the microphone and as long.
struct Output {
  std::vector<int16_t> sent;
  Signal plain;                      ///< `sent` with the AGC's gain divided out, as far as it is known
  std::vector<QvVoiceTrace> trace;   ///< [frames]; empty for an output that was made elsewhere
  std::vector<double> frame_seconds; ///< [frames] likewise
  int frame_len = 0;                 ///< samples; 0 likewise
  int latency = 0;                   ///< samples that have been taken out
  std::string source;                ///< parameters, or the file that was read
};

/// A run over the recording, compensated.
Output output_of(Run run, const Setup &setup);

/// Runs the library over the recording.
Output run_library(const Subject &subject, const Setup &setup, const ProgressFn &progress = {});

/// An output that was made elsewhere. Nothing is known about its gain.
/// @param lag  samples by which it is behind the microphone
/// @throws InputError when it cannot be read, has another rate or is shorter than half the recording
Output read_output(const Subject &subject, const std::string &path, int lag);

} // namespace qv::tool::measure
