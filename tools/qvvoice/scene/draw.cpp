#include "scene/draw.h"

#include <algorithm>
#include <numbers>

#include <fmt/format.h>

#include "scene/random.h"
#include "scene/room.h"

namespace qv::tool::scene {
namespace {

double between(Random &random, double least, double greatest) { return std::lerp(least, greatest, random.uniform()); }

std::string text_of(Point p) { return fmt::format("[{:.2f}, {:.2f}, {:.2f}]", p.x, p.y, p.z); }

/// A place so far from another in a random direction, a little above it.
Point place_near(Random &random, Point other, double least, double greatest) {
  const double away = between(random, least, greatest), angle = between(random, 0, 2 * std::numbers::pi);
  return {other.x + away * std::cos(angle), other.y + away * std::sin(angle), other.z + away * between(random, 0, 0.4)};
}

std::string draw_change(Random &random, Point microphone) {
  const double kind = random.uniform(), time = between(random, 19.5, 21);
  if (kind < 0.15)
    return fmt::format("changes = [{{ time = {:.2f}, delay = {:.4f} }}]\n", time, between(random, 0, 0.2));
  if (kind < 0.35)
    return fmt::format("changes = [{{ time = {:.2f}, loudspeaker = {}, gain = {:.1f} }}]\n", time,
                       text_of(place_near(random, microphone, 0.06, 0.4)), between(random, -6, 6));
  return "";
}

} // namespace

std::string draw_scene(uint64_t seed, Part part, size_t index) {
  Random random(seed, 2 * index + uint64_t(part));
  const Point size = {between(random, 3, 7), between(random, 2.8, 5), between(random, 2.4, 3)};
  const Point microphone = {size.x * between(random, 0.35, 0.65), size.y * between(random, 0.35, 0.65), 0.8};
  const char *voices[2] = {part == Part::tune ? "en" : "fr", part == Part::tune ? "ru" : "it"};
  if (random.uniform() < 0.5)
    std::swap(voices[0], voices[1]);
  constexpr const char *noises[] = {"white", "pink"};
  std::string text = fmt::format("title = \"Drawn: seed {}, {} {}\"\nduration = 24\nseed = {}\n", seed,
                                 part == Part::tune ? "tune" : "check", index, random.below(1000000000));
  text += fmt::format("[room]\nsize = {}\nreverberation_time = {:.2f}\n", text_of(size), between(random, 0.15, 0.5));
  text += fmt::format("microphone = {}\nloudspeaker = {}\ntalker = {}\n", text_of(microphone),
                      text_of(place_near(random, microphone, 0.06, 0.4)),
                      text_of(place_near(random, microphone, 0.3, 0.9)));
  text += fmt::format("[far]\nvoice = \"{}\"\nlevel = {:.1f}\ntalks = [[0.2, 8], [13.5, 18], [19, 24]]\n", voices[0],
                      between(random, -32, -20));
  text += fmt::format("[near]\nvoice = \"{}\"\nlevel = {:.1f}\ntalks = [[8.6, 18]]\n", voices[1],
                      between(random, -34, -24));
  text += fmt::format("[echo]\nto_near = 0\ndelay = {:.4f}\n", between(random, 0, 0.2));
  if (random.uniform() < 0.3)
    text += fmt::format("saturation = {:.1f}\n", between(random, 0, 9));
  if (const double drift = random.uniform(); drift < 0.3)
    text += fmt::format("drift = {}\n", drift < 0.15 ? 50 : -50);
  text += draw_change(random, microphone);
  text += fmt::format("[noise]\nkind = \"{}\"\nsnr = {:.1f}\n", noises[random.below(std::size(noises))],
                      between(random, 0, 30));
  return text;
}

} // namespace qv::tool::scene
