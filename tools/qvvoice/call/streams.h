/// @file streams.h  A call through the library, frame by frame, of any length.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "call/library.h"

namespace qv::tool {

/// Gives the next samples, fewer than asked for only at the end.
using SampleSource = std::function<size_t(std::span<int16_t> samples)>;
using SampleSink = std::function<void(std::span<const int16_t> samples)>;

/// Where a call comes from and goes to, at the rate of its setup.
struct Streams {
  SampleSource far = {};             ///< with it the receive path runs
  SampleSource mic = {};             ///< with it the transmit path runs
  SampleSource ref = {};             ///< without it the receive output is the echo reference
  SampleSink sent = {}, played = {}; ///< outputs, as long as the longest input together; empty: nobody listens
  std::function<void(const QvVoiceTrace &trace, double seconds)> frame = {}; ///< after each; time that the library took
};

/// From a fresh initialisation. The shorter input is continued with zeros, the last frame filled up with zeros.
/// @param compensate  takes the library's latency out of the outputs; their length stays
/// @return the latency as configured, compensated or not
Latency run_streams(const Setup &setup, const Streams &streams, bool compensate);

} // namespace qv::tool
