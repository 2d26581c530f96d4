/// @file evaluator.h  What parameters make of a set of recordings.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "config/fields.h"
#include "fleet/coordinator.h"
#include "tune/numbers.h"

namespace qv::tool::tune {

struct Evaluation {
  std::vector<Numbers> by_recording;
  std::string failed; ///< the first recording that could not be measured, and why; empty: all have numbers
};

/// Shares out pairs of parameters and recording. Speed is not measured.
class Evaluator {
public:
  virtual ~Evaluator() = default;

  virtual const std::vector<std::string> &names() const = 0; ///< of the recordings

  virtual Json identity() const = 0; ///< what tells the set from another one

  using Done = std::function<void(size_t image, Evaluation evaluation)>;

  /// @param done  called for each image in order, as soon as it and those before it are through
  virtual void evaluate(const std::vector<config::Image> &images, const Done &done) = 0;
};

/// Reads every recording of this rate, and measures in processes that keep them all in memory.
/// @param set       folder or manifest, see sets/set.h
/// @param parallel  processes at a time
/// @throws InputError when the set has faults, or no recording of this rate
std::unique_ptr<Evaluator> in_memory(const std::string &set, int rate, int frame_ms, int parallel);

/// Measures in shards, by whatever workers there are: each evaluation of images is a run of its own below `folder`
/// (fleet/run.h), which goes on after an interruption and is removed when it is through.
/// @throws as in_memory(); evaluate() as fleet::measure_missing(), and InputError when none of several images can be
///         measured: the recordings are at fault then
std::unique_ptr<Evaluator> on_fleet(const std::string &set, int rate, int frame_ms, const std::string &folder,
                                    const fleet::Workers &workers);

/// The recordings of a set that have this rate. @throws as in_memory()
std::vector<sets::Entry> recordings_at(const std::string &set, int rate);

} // namespace qv::tool::tune
