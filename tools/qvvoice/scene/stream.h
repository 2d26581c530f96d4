/// @file stream.h  What a device loses between its converters and the application.
#pragma once

#include "scene/scene.h"
#include "scene/truth.h"

namespace qv::tool::scene {

/// For every sample of the stream the sample of the sound that it carries; -1: a zero.
using Carried = std::vector<std::ptrdiff_t>;

/// @param faults  of the side, in order of time
/// @param count   samples of the stream
Carried carried(const std::vector<Fault> &faults, Side side, size_t count, int rate);

Signal delivered(SignalView sound, const Carried &carried);

/// Seconds of sound that a call needs beyond its length, because frames of it are lost.
double lost_seconds(const std::vector<Fault> &faults);

/// The delay and the events as the two streams show them, on the clock of the microphone's stream; and when it is
/// muted or the echo has no reference. Events that show after the end are left out.
/// @param duration  s, of the streams
/// @param truth     of the sound itself
void apply_faults(const std::vector<Fault> &faults, double duration, Truth &truth);

} // namespace qv::tool::scene
