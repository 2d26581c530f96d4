/// @file echo_path.h  From the reference to its echo in the microphone.
#pragma once

#include "scene/scene.h"
#include "scene/truth.h"

namespace qv::tool::scene {

/// y[n] = sum over k of x[n - k + response.lead] response.taps[k], x zero outside.
Signal convolve(SignalView x, const Response &response);

/// The echo, up to one common gain: loudspeaker, bulk delay, clock drift, room, and its changes, each faded in
/// over 5 ms.
/// @param truth  gets `delay`, `events` and, with a driver, `distortion`
Signal echo_of(const Scene &scene, Signal reference, int rate, Truth &truth);

} // namespace qv::tool::scene
