/// @file reference.h  What the loudspeaker was given, as spectra of its last frames.
#pragma once

#include "state_space/shape.h"
#include "state_space/spectra.h"

namespace qv::state_space {

/// A spectrum of "age" a is that of the 2N samples that ended a frames ago.
struct Reference {
  int32_t n = 0;
  int32_t frames = 0, over_frames = 0; ///< spectra kept
  int32_t newest = 0, over_newest = 0; ///< place of age 0
  Spectra whole;                       ///< [frames]
  /// [over_frames] of what exceeds a share of the recent peak: a loudspeaker that clips makes its distortion from it
  Spectra over;
  float *previous = nullptr, *over_previous = nullptr; ///< [N] samples of the frame before
  float peak = 0;                                      ///< recent peak, sample units
  float *power = nullptr;                              ///< [frames] mean squares

  SplitSpectrum at(int32_t age) const { return whole[(newest + age) % frames]; }
  float power_at(int32_t age) const { return power[(newest + age) % frames]; }
  SplitSpectrum over_at(int32_t age) const { return over[(over_newest + age) % over_frames]; }
};

inline constexpr int32_t over_partitions = 8; ///< frames of the path of what exceeds; more gain nothing

/// @return whether memory was there; what could be had is in `r` either way
bool init(const Shape &shape, Reference &r);
void destroy(Reference &r);

/// The next frame. @param samples  [N]
void push(const int16_t *samples, Reference &r, BatchTransform &transform);

} // namespace qv::state_space
