/// @file made_calls.h  Calls of recorded voices, in parts that a fault can change before they are put together.
#pragma once

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "call/run.h"
#include "scene/echo_path.h"
#include "scene/render.h"
#include "signal/resample.h"
#include "signal/signal.h"

namespace qv::tool::diagnose::made {

inline constexpr int rate = 8000;     // Hz
inline constexpr double seconds = 20; // far end: 0.4 to 8 s and 11 to 19.7 s, near end: 8.4 to 12.5 s
inline constexpr size_t length = size_t(seconds * rate);

using scene::Random;

/// What is heard, in its parts, and what the loudspeaker is given.
struct Parts {
  scene::Scene scene;
  Signal ref, echo, near, noise;
  Random random; ///< for how strong a fault is

  double between(double least, double greatest) { return std::lerp(least, greatest, random.uniform()); }
};

/// What is recorded.
struct Recorded {
  const char *preset; ///< of the library that runs on it
  Samples mic, ref;
  Signal near; ///< of the microphone
  Random random;

  double between(double least, double greatest) { return std::lerp(least, greatest, random.uniform()); }
};

/// A quiet call without any fault; another room, delay, noise, voice and level for every index.
/// @param held_back  voices that nothing was tuned on
inline std::string scene_text(bool held_back, size_t index) {
  Random random(held_back ? 77 : 11, index);
  const auto between = [&](double least, double greatest) { return std::lerp(least, greatest, random.uniform()); };
  const char *voices[] = {held_back ? "fr" : "en", held_back ? "it" : "ru"};
  const double x = between(1.5, 3), y = between(1.2, 2.5);
  std::string text = fmt::format("duration = {}\nseed = {}\n[room]\nsize = [{:.2f}, {:.2f}, 2.6]\n", seconds,
                                 random.below(100000), x + between(1.5, 3), y + between(1.2, 2.5));
  text += fmt::format("reverberation_time = {:.2f}\nmicrophone = [{:.2f}, {:.2f}, 0.8]\n", between(0.15, 0.4), x, y);
  text += fmt::format("loudspeaker = [{:.2f}, {:.2f}, 0.9]\n", x + between(0.06, 0.3), y);
  text += fmt::format("talker = [{:.2f}, {:.2f}, 1.1]\n", x, y + between(0.3, 0.9));
  text += fmt::format("[far]\nvoice = \"{}\"\nlevel = {:.1f}\ntalks = [[0.4, 8], [11, 19.7]]\n", voices[index % 2],
                      between(-30, -20));
  text += fmt::format("[near]\nvoice = \"{}\"\nlevel = {:.1f}\ntalks = [[8.4, 12.5]]\n", voices[(index + 1) % 2],
                      between(-32, -24));
  text += fmt::format("[echo]\ndelay = {:.4f}\nto_near = {:.1f}\n", between(0.01, 0.18), between(-6, 6));
  return text + fmt::format("[noise]\nkind = \"{}\"\nsnr = {:.1f}\n", index % 2 ? "white" : "pink", between(15, 35));
}

inline Parts parts_of(bool held_back, size_t index) {
  static scene::SpeechReader speech(rate);
  const scene::Scene scene = scene::parse_scene(scene_text(held_back, index), "call.toml");
  const scene::Call call = scene::render(scene, speech, rate);
  return {scene, to_signal(call.ref), to_signal(call.echo), to_signal(call.near), to_signal(call.noise), Random(index)};
}

inline Signal delayed(const Signal &signal, double by) {
  return excerpt(signal, -std::ptrdiff_t(std::lround(by * rate)), signal.size());
}

/// From `time` on the signal comes `by` seconds later (earlier when negative).
inline void jump(Signal &signal, double time, double by) {
  const Signal moved = delayed(signal, by);
  std::copy(moved.begin() + std::ptrdiff_t(time * rate), moved.end(), signal.begin() + std::ptrdiff_t(time * rate));
}

/// Read `speed` times as fast, as long as before.
inline Signal at_speed(const Signal &signal, double speed) {
  Signal fast = resample(signal, int(std::lround(1e6 * speed)), 1000000);
  fast.resize(signal.size());
  return fast;
}

inline Signal low_passed(const Signal &signal, int frequency) {
  Signal low = resample(resample(signal, rate, 2 * frequency), 2 * frequency, rate);
  low.resize(signal.size());
  return low;
}

inline void add(Signal &to, const Signal &part, double gain = 1) {
  for (size_t i = 0; i < to.size(); ++i)
    to[i] += gain * part[i];
}

/// The echo of what a loudspeaker makes of the reference, as loud as the echo was.
inline Signal echo_through(const Parts &parts, const scene::Echo &echo) {
  scene::Scene scene = parts.scene;
  scene.echo = echo;
  scene::Truth truth;
  Signal made = scene::echo_of(scene, parts.ref, rate, truth);
  scale(made, std::sqrt(energy(parts.echo) / energy(made)));
  return made;
}

inline Recorded recorded(const Parts &parts, const char *preset) {
  Signal mic = parts.echo;
  add(mic, parts.near);
  add(mic, parts.noise);
  return {preset, to_samples(mic), to_samples(parts.ref), parts.near, parts.random};
}

} // namespace qv::tool::diagnose::made
