/// @file library.h  The library, initialised for as long as the object lives. One at a time per process.
#pragma once

#include <cstdint>

#include "call/setup.h"
#include "qvvoice/qvvoice.h"

namespace qv::tool {

struct Latency {
  int tx = 0, rx = 0; ///< samples
};

/// Every function throws std::runtime_error with the library's status text when a call is refused.
class Library {
public:
  explicit Library(const Setup &setup);
  ~Library();
  Library(const Library &) = delete;
  Library &operator=(const Library &) = delete;

  /// One frame each: `frame_len` samples per buffer.
  void tx(const int16_t *mic, const int16_t *ref, int16_t *out);
  void rx(const int16_t *in, int16_t *out);

  QvVoiceTrace trace() const; ///< of the last frames
  Latency latency() const;

private:
  uint32_t frame_len_;
};

} // namespace qv::tool
