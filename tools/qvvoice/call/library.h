/// @file library.h  A call of the library, for as long as the object lives.
#pragma once

#include <cstdint>
#include <memory>

#include "call/setup.h"
#include "qvvoice/call.h"

namespace qv::tool {

struct Latency {
  int tx = 0, rx = 0; ///< samples
};

/// The comfort noise is the one of `noise_seed` 0: the same samples in every run.
/// Every function throws std::runtime_error with the library's status text when a call is refused.
class Library {
public:
  explicit Library(const Setup &setup);

  /// One frame each: `frame_len` samples per buffer, none of them shared.
  void tx(const int16_t *mic, const int16_t *ref, int16_t *out);
  void rx(const int16_t *in, int16_t *out);

  QvVoiceTrace trace() const; ///< of the last frames
  Latency latency() const;

private:
  std::unique_ptr<qv_call, decltype(&qv_call_destroy)> call_{nullptr, qv_call_destroy};
};

} // namespace qv::tool
