/// @file noise.h  Background noise.
#pragma once

#include "scene/random.h"
#include "signal/signal.h"

namespace qv::tool::scene {

Signal white_noise(size_t count, Random random);

/// Power falls by 3 dB per octave, within 0.1 dB from 1/2000 of the rate up.
Signal pink_noise(size_t count, Random random);

} // namespace qv::tool::scene
