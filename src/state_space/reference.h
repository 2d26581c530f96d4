/// @file reference.h  What the loudspeaker was given: its last samples, and spectra where the filters need them.
#pragma once

#include "state_space/shape.h"
#include "state_space/spectra.h"

namespace qv::state_space {

inline constexpr int32_t over_partitions = 6; ///< frames of the path of what exceeds; more gain nothing
inline constexpr int32_t most_partitions = 32;

/// A block of age a is the 2N samples that ended a frames ago. The filters weigh blocks from the bulk delay's age on,
/// so each block is transformed when it has come to that age; only what a change of the delay skips is made up for.
struct Reference {
  int32_t n = 0;
  int32_t delay = 0;                 ///< frames of bulk delay: the age of the first block that is weighed
  int32_t frames = 0;                ///< of samples kept
  int32_t partitions = 0;            ///< blocks that are weighed
  int32_t newest = 0;                ///< place of the newest frame's samples
  int32_t first = 0, over_first = 0; ///< places of the first blocks that are weighed
  int16_t *samples = nullptr;        ///< [frames * N]
  float *power = nullptr;            ///< [frames] mean squares
  Spectra whole;                     ///< [partitions]
  /// [over_partitions] of what exceeds a share of the recent peak: a loudspeaker that clips makes its distortion from
  /// it
  Spectra over;
  bool missing[most_partitions] = {}; ///< blocks that have not been transformed
  float *over_before = nullptr;       ///< [N] what exceeded in the frame before the first block's last
  float peak = 0;                     ///< recent peak, sample units

  SplitSpectrum weighed(int32_t partition) const { return whole[(first + partition) % partitions]; }
  SplitSpectrum over_weighed(int32_t partition) const { return over[(over_first + partition) % over_partitions]; }
  float power_at(int32_t age) const { return power[(newest + age) % frames]; }
};

/// @return whether memory was there; what could be had is in `r` either way
bool init(const Shape &shape, Reference &r);
void destroy(Reference &r);

/// The next frame. @param samples  [N]  @param now  [N + 1] written: the spectrum of the block of age 0
void push(const int16_t *samples, Reference &r, BatchTransform &transform, const SplitSpectrum &now);

/// The bulk delay becomes another. Blocks that were not transformed count as silence until they are: one a frame.
void set_delay(int32_t delay, Reference &r);

} // namespace qv::state_space
