/// @file arrival.h  Where what is left of the echo comes from: the lag of the highest cross-correlation of error and
/// reference with phase transform (Knapp and Carter, "The generalized correlation method for estimation of time delay",
/// IEEE TASSP 24(4), 1976).
///
/// Near-end speech is no function of the reference, so it raises no lag; an echo that the filter does not have does,
/// also in double talk. At the start of a call, and wherever the filter has nothing, it says where the echo is.
#pragma once

#include "state_space/reference.h"

namespace qv::state_space {

struct Arrival {
  int32_t n = 0;
  int32_t delays = 0;          ///< frames of lag that are searched
  int32_t first = 0, bins = 0; ///< band of the spectra that is used
  int32_t length = 0;          ///< of the transforms to lags
  int32_t step = 0;            ///< samples per lag
  int32_t newest = 0;          ///< place of the newest direction
  float keep = 0;              ///< of the cross-spectra's average, per frame
  Spectra direction;           ///< [delays] of `bins`: the reference's spectra over their magnitude, 0 where weak
  Spectra cross;               ///< [delays] of `bins`
  float *window = nullptr;     ///< [N] Hann: unwindowed, block edges correlate at multiples of N

  float peak = 0;      ///< highest lag over its frame's rms: 3 to 5 without echo, 5 to 12 with one
  int32_t lag = 0;     ///< samples
  int32_t lasting = 0; ///< frames for which it has stayed there
};

bool init(const Shape &shape, Arrival &a);
void destroy(Arrival &a);

/// The reference's newest spectrum.
void push(const SplitSpectrum &reference, Arrival &a);

/// @param error  spectrum of N zeros and the N windowed samples of the error
void search(const SplitSpectrum &error, Arrival &a, BatchTransform &to_lags);

} // namespace qv::state_space
