/// @file draw.h  Scenes drawn at random, to tune on some and to judge by others.
#pragma once

#include <cstdint>
#include <string>

namespace qv::tool::scene {

/// Two sets that share neither talkers nor rooms.
enum class Part { tune, check };

/// The text of a scene of 24 s at 0 dB echo-to-near ratio: far end alone (0.2 to 8 s), near end alone, both, nobody,
/// far end alone again (from 19 s). Reverberation 0.15 to 0.5 s, bulk delay 0 to 200 ms, noise at 0 to 30 dB, and in
/// some a loudspeaker at its limit, clocks 50 ppm apart, a changed echo path or a delay jump.
/// @param index  from 0; scene `index` of a seed is the same however many are drawn
std::string draw_scene(uint64_t seed, Part part, size_t index);

} // namespace qv::tool::scene
