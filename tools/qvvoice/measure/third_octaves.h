/// @file third_octaves.h  Short-time powers of a signal in third octaves.
#pragma once

#include <vector>

#include "signal/signal.h"

namespace qv::tool::measure {

/// Bands of a third of an octave about 1000 Hz * 2^(k/3), from 125 Hz up; the lowest holds everything below its upper
/// edge too, the highest everything above its lower edge, so that the bands together are the whole signal.
/// @param rate  8000 or 16000 Hz
/// @return centres in Hz
std::vector<double> third_octave_centres(int rate);

using BandPowers = std::vector<double>; ///< [band] mean squares

/// Of the frames of 10 ms with a flag, each in a Hann window of 50 ms about it; frames without one have no bands. The
/// sum over the bands is the mean square of the signal, weighted by the window's square.
/// @param wanted  [frames]
std::vector<BandPowers> third_octaves(SignalView signal, const std::vector<bool> &wanted, int rate);

} // namespace qv::tool::measure
