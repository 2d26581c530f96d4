/// @file drift.h  The difference of the clocks of microphone and loudspeaker.
///
/// A converted stream's echo path moves by so many samples per frame: a known motion, which the state's model can have.
/// It shows in the estimated path itself, as a phase that grows with the frequency from one half second to the next.
#pragma once

#include "state_space/filter.h"

namespace qv::state_space {

struct Drift {
  int32_t n = 0;
  int32_t first = 0, bins = 0; ///< bins that are looked at
  int32_t interval = 0;        ///< frames from one look to the next
  float largest = 0;           ///< samples per frame
  Spectra earlier;             ///< [partitions] of `bins`: the path an interval ago
  SplitSpectrum turn{};        ///< [stride] phase of one frame's drift
  float per_frame = 0;         ///< samples by which the echo comes later from frame to frame
  float turned = 0;            ///< samples by which the path was turned since the last look
  int32_t partitions = 0, stride = 0;
  int32_t elapsed = 0, heard = 0; ///< frames since then, and those of them with a far end
  int32_t looks = 0;              ///< counted up to where they are trusted less
  bool known = false;             ///< whether there is an earlier path

  float ppm() const { return 1e6f * per_frame / float(n); }
};

bool init(const Shape &shape, Drift &d);
void destroy(Drift &d);

/// The path was moved or is no longer what it was: the next look only remembers.
void forget(Drift &d);

/// A frame has passed. @param far_heard  whether the reference had something from which to learn
void observe(const Filter &f, bool far_heard, Drift &d);

} // namespace qv::state_space
