/// @file shape.h  The sizes that follow from a layout, and times in frames.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace qv::state_space {

inline constexpr float longest_tail_ms = 320;
inline constexpr float longest_delay_ms = 500; ///< of an echo that is found
inline constexpr int32_t room_in_front = 3;    ///< partitions kept for an echo that comes earlier than it was found

struct Shape {
  int32_t rate;       ///< Hz
  int32_t n;          ///< N, frame length; transforms have 2N points, spectra bins 0 .. N
  int32_t stride;     ///< floats from one spectrum to the next: N + 1 rounded up to whole vectors
  int32_t partitions; ///< of the echo path, a frame each
  int32_t delays;     ///< frames of delay that are searched for the echo

  int32_t most_delay() const { return delays - room_in_front; } ///< frames of bulk delay
  float frame_ms() const { return 1000.f * float(n) / float(rate); }
  int32_t frames(float ms) const { return std::max(1, int32_t(std::lround(ms / frame_ms()))); }

  /// The factor per frame of an average that keeps `per_20_ms` of itself in 20 ms.
  float keep(double per_20_ms) const { return float(std::pow(per_20_ms, double(frame_ms()) / 20)); }

  int32_t bin(float hertz) const { return int32_t(hertz * 2 * float(n) / float(rate)); }
};

inline constexpr int32_t vector_width = 8; // floats of a vector of AVX2

inline Shape shape_of(int32_t rate, int32_t n, float tail_ms) {
  Shape shape{rate, n, (n + vector_width) / vector_width * vector_width, 0, 0};
  shape.partitions = shape.frames(std::clamp(tail_ms, shape.frame_ms(), longest_tail_ms));
  shape.delays = shape.frames(longest_delay_ms) + 1;
  return shape;
}

} // namespace qv::state_space
