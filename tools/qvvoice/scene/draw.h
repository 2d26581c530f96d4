/// @file draw.h  Scenes drawn at random, to tune on some and to judge by others.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace qv::tool::scene {

/// Two sets that share neither talkers nor rooms.
enum class Part { tune, check };

/// What is drawn. usual: one change at most, as described below. hard: everything that devices do wrong, mixed.
enum class Family { usual, hard };

/// By the names that options and manifests use.
const std::map<std::string, Part> &parts();
const std::map<std::string, Family> &families();
std::string name_of(Part part);
std::string name_of(Family family);

/// Length of a scene.
constexpr int seconds_of(Family family) { return family == Family::hard ? 40 : 24; }

/// The text of a scene of 24 s at 0 dB echo-to-near ratio: far end alone (0.2 to 8 s), near end alone, both, nobody,
/// far end alone again (from 19 s). Reverberation 0.15 to 0.5 s, bulk delay 0 to 200 ms, noise at 0 to 30 dB, and in
/// some a loudspeaker at its limit, clocks 50 ppm apart, a changed echo path or a delay jump.
/// @param index  from 0; scene `index` of a seed is the same however many are drawn
///
/// Hard scenes last 40 s: far end alone (0.5 to 9 s, 23.5 to 40 s), near end alone (9.5 to 14 s), both (16 to 21.5 s),
/// nobody between. docs/scenes.md has what is drawn.
std::string draw_scene(uint64_t seed, Part part, size_t index, Family family = Family::usual);

} // namespace qv::tool::scene
