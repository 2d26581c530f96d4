/// @file result.h  An output of a call, written as it comes.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "audio/level.h"
#include "audio/wav_writer.h"

namespace qv::tool::process {

class Result {
public:
  /// @param role    its option: "out" or "played"
  /// @param inputs  files that are read
  /// @throws InputError when it cannot be written
  Result(std::string role, const std::string &path, std::span<const std::string> inputs, int rate, bool header)
      : role_(std::move(role)), file_(path, inputs), wav_(file_, rate, header) {}
  Result(const Result &) = delete;
  Result &operator=(const Result &) = delete;

  void write(std::span<const int16_t> samples) {
    wav_.write(samples);
    level_.add(samples);
  }
  void finish() { wav_.finish(); }
  void commit() { file_.commit(); }

  const std::string &role() const { return role_; }
  const std::string &path() const { return file_.path(); }
  const LevelMeter &level() const { return level_; }

private:
  std::string role_;
  OutputFile file_;
  WavWriter wav_;
  LevelMeter level_;
};

} // namespace qv::tool::process
