/// @file resample.h  The same signal at another rate.
#pragma once

#include <memory>
#include <span>

#include "signal/signal.h"

namespace qv::tool {

/// By libsoxr, high quality, without delay; the same values for any blocks.
class Resampler {
public:
  /// @param from,to  Hz
  Resampler(int from, int to);

  struct Moved {
    size_t taken, written;
  };
  /// Takes what it can of `in` and writes what is ready. An empty `in` says that the signal has ended; what is left is
  /// then written by this call and the next ones, until one writes nothing.
  Moved process(SignalView in, std::span<double> out);

private:
  struct Deleter {
    void operator()(void *resampler) const;
  };
  int from_, to_;
  std::unique_ptr<void, Deleter> resampler_;
};

/// A whole signal. @param from,to  Hz
Signal resample(SignalView signal, int from, int to);

} // namespace qv::tool
