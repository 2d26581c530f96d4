/// @file music.h  Music that needs no recording.
#pragma once

#include "scene/random.h"
#include "signal/signal.h"

namespace qv::tool::scene {

/// Chords, a bass, a melody and drums in a key, a tempo and with voices that `random` picks; no pause in it.
Signal music(size_t count, int rate, Random random);

} // namespace qv::tool::scene
