/// @file loudspeaker.h  What a small loudspeaker makes of its signal.
#pragma once

#include "scene/scene.h"

namespace qv::tool::scene {

/// Limits a signal whose peak is `saturation` dB above the limit. Soft: x / sqrt(1 + (x / limit)^2).
void clip(Signal &signal, double saturation, Clipping shape);

/// The sound pressure of a driver in a closed box: a resonance of second order whose motor grows weaker with the
/// excursion of the cone, so that low notes modulate high ones (Klippel 2006), and with the heat of its coil.
Signal driven(SignalView signal, const Driver &driver, int rate);

/// Power of what no gain explains over power of the signal, dB: how far `signal` is from a multiple of `linear`.
/// @return nothing when either is silent or nothing is left
std::optional<double> distortion_db(SignalView linear, SignalView signal);

} // namespace qv::tool::scene
