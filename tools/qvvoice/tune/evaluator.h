/// @file evaluator.h  What parameters make of a set of recordings.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/worker_pool.h"
#include "tune/plan.h"

namespace qv::tool::tune {

/// Shares out pairs of parameters and recording among processes. Speed is not measured: it says nothing while several
/// run.
class Evaluator {
public:
  /// Reads every recording of this rate.
  /// @param set       folder or manifest, see sets/set.h
  /// @param parallel  processes at a time
  /// @throws InputError when the set has faults, or no recording of this rate
  Evaluator(const std::string &set, int rate, int frame_ms, int parallel);
  Evaluator(const Evaluator &) = delete;
  Evaluator &operator=(const Evaluator &) = delete;

  const std::vector<std::string> &names() const { return names_; } ///< of the recordings, as folders of the set

  uint64_t checksum() const; ///< of all samples (FNV-1a)

  using Done = std::function<void(size_t image, std::vector<Numbers> by_recording)>;

  /// @param done  called for each image in order, as soon as it and those before it are through
  /// @throws std::runtime_error when a process ends without a result; it names the recording
  void evaluate(const std::vector<config::Image> &images, const Done &done);

private:
  void read(const std::string &set);

  int rate_, frame_ms_;
  std::vector<std::string> names_;
  std::vector<measure::Subject> subjects_;
  std::vector<measure::Known> known_;
  std::optional<WorkerPool> pool_;
};

} // namespace qv::tool::tune
