#include "scene/draw.h"

#include <algorithm>
#include <array>
#include <numbers>

#include <fmt/format.h>

#include "scene/random.h"
#include "scene/scene.h"

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

std::array<const char *, 2> voices_of(Random &random, Part part) {
  std::array<const char *, 2> voices = {part == Part::tune ? "en" : "fr", part == Part::tune ? "ru" : "it"};
  if (random.uniform() < 0.5)
    std::swap(voices[0], voices[1]);
  return voices;
}

// Each number is drawn in a statement or a list of its own: the order within a call's arguments is the compiler's.

std::string draw_loudspeaker(Random &random) {
  const double kind = random.uniform();
  if (kind < 0.4) {
    const Driver driver{between(random, 200, 800), between(random, 0.7, 3), between(random, -18, -3),
                        between(random, 0, 4), between(random, 0.5, 4)};
    return fmt::format("driver = {{ resonance = {:.0f}, quality = {:.1f}, limit = {:.1f}, heating = {:.1f}, "
                       "heating_time = {:.1f} }}\n",
                       driver.resonance, driver.quality, driver.limit, driver.heating, driver.heating_time);
  }
  if (kind < 0.7)
    return fmt::format("saturation = {:.1f}\nclipping = \"{}\"\n", between(random, 0, 10),
                       kind < 0.55 ? "soft" : "hard");
  return "";
}

/// @param delay  s, of the path before and after it
std::string draw_hard_change(Random &random, double time, Point microphone, double &delay) {
  const double kind = random.uniform();
  if (kind < 0.35) {
    delay = std::clamp(delay + between(random, -0.3, 0.3), 0.0, 0.45);
    return fmt::format("{{ time = {:.2f}, delay = {:.4f} }}, ", time, delay);
  }
  if (kind < 0.7)
    return fmt::format("{{ time = {:.2f}, loudspeaker = {} }}, ", time,
                       text_of(place_near(random, microphone, 0.06, 0.4)));
  return fmt::format("{{ time = {:.2f}, gain = {:.1f} }}, ", time, between(random, -20, 20));
}

/// The first words of a fault: which side, and lost or repeated frames, so many.
std::string draw_frames(Random &random, double time, size_t most) {
  const char *side = random.uniform() < 0.5 ? "microphone" : "reference";
  const char *kind = random.uniform() < 0.5 ? "lost" : "repeated";
  return fmt::format("  {{ time = {:.3f}, side = \"{}\", {} = {}", time, side, kind, 1 + random.below(most));
}

std::string draw_faults(Random &random, double first, double second) {
  std::string faults;
  const double kind = random.uniform();
  if (kind < 0.3)
    for (const double time : {first, second})
      faults += draw_frames(random, time, 10) + " },\n";
  else if (kind < 0.45) {
    faults = draw_frames(random, between(random, 1, 5), 1);
    faults += fmt::format(", every = {:.1f} }},\n", between(random, 3, 8));
  } else if (kind < 0.7) {
    const char *side = random.uniform() < 0.5 ? "microphone" : "reference";
    faults =
        fmt::format("  {{ time = {:.3f}, side = \"{}\", silent = {:.1f} }},\n", first, side, between(random, 1, 3));
  }
  return fmt::format("[stream]\nframe_ms = {}\nfaults = [\n{}]\n", random.uniform() < 0.5 ? 16 : 20, faults);
}

std::string draw_room(Random &random, Point &microphone) {
  const Point size = {between(random, 3, 7), between(random, 2.8, 5), between(random, 2.4, 3)};
  microphone = {size.x * between(random, 0.35, 0.65), size.y * between(random, 0.35, 0.65), 0.8};
  const Point loudspeaker = place_near(random, microphone, 0.06, 0.4);
  const Point talker = place_near(random, microphone, 0.3, 0.9);
  return fmt::format("[room]\nsize = {}\nreverberation_time = {:.2f}\nmicrophone = {}\nloudspeaker = {}\ntalker = {}\n",
                     text_of(size), between(random, 0.15, 0.5), text_of(microphone), text_of(loudspeaker),
                     text_of(talker));
}

std::string draw_talkers(Random &random, const std::array<const char *, 2> &voices) {
  const char *sound = random.uniform() < 0.2 ? "music" : "speech";
  const std::array levels = {between(random, -32, -20), between(random, -34, -24)};
  return fmt::format(
      "[far]\nvoice = \"{}\"\nsound = \"{}\"\nlevel = {:.1f}\ntalks = [[0.5, 9], [16, 21.5], [23.5, 40]]\n"
      "[near]\nvoice = \"{}\"\nlevel = {:.1f}\ntalks = [[9.5, 14], [16, 21.5]]\n",
      voices[0], sound, levels[0], voices[1], levels[1]);
}

/// The echo path and the streams: two changes of the path and faults beside them, or faults alone in their place.
std::string draw_path(Random &random, Point microphone) {
  // The first may fall into double talk.
  const double first = random.uniform() < 0.3 ? between(random, 17, 20) : between(random, 26, 28);
  const double second = between(random, 32, 34), to_near = between(random, -10, 10);
  double delay = between(random, 0, 0.45);
  std::string text = fmt::format("[echo]\nto_near = {:.1f}\ndelay = {:.4f}\n", to_near, delay);
  text += draw_loudspeaker(random);
  if (random.uniform() < 0.4)
    text += fmt::format("drift = {:.0f}\n", between(random, -200, 200));
  if (random.uniform() < 0.4)
    return text + draw_faults(random, first, second);
  text += "changes = [" + draw_hard_change(random, first, microphone, delay);
  text += draw_hard_change(random, second, microphone, delay) + "]\n";
  const std::array between_them = {between(random, 5, 7), between(random, 29.5, 30.5)};
  return text + draw_faults(random, between_them[0], between_them[1]);
}

std::string draw_hard_scene(uint64_t seed, Part part, size_t index) {
  constexpr uint64_t apart = uint64_t(1) << 32; // from the random sequences of the usual scenes
  constexpr const char *noises[] = {"white", "pink", "babble"};
  Random random(seed, apart + 2 * index + uint64_t(part));
  const auto voices = voices_of(random, part);
  Point microphone;
  std::string text = fmt::format("title = \"Hard: seed {}, {} {}\"\nduration = {}\nseed = {}\n", seed, name_of(part),
                                 index, seconds_of(Family::hard), random.below(1000000000));
  text += draw_room(random, microphone);
  text += draw_talkers(random, voices);
  text += draw_path(random, microphone);
  const char *noise = noises[random.below(std::size(noises))];
  return text + fmt::format("[noise]\nkind = \"{}\"\nsnr = {:.1f}\nvoices = [\"{}\", \"{}\"]\n", noise,
                            between(random, 5, 35), voices[0], voices[1]);
}

std::string draw_usual_scene(uint64_t seed, Part part, size_t index) {
  Random random(seed, 2 * index + uint64_t(part));
  const Point size = {between(random, 3, 7), between(random, 2.8, 5), between(random, 2.4, 3)};
  const Point microphone = {size.x * between(random, 0.35, 0.65), size.y * between(random, 0.35, 0.65), 0.8};
  const auto voices = voices_of(random, part);
  constexpr const char *noises[] = {"white", "pink"};
  std::string text = fmt::format("title = \"Drawn: seed {}, {} {}\"\nduration = {}\nseed = {}\n", seed, name_of(part),
                                 index, seconds_of(Family::usual), random.below(1000000000));
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

template <class Kind> std::string name_in(const std::map<std::string, Kind> &names, Kind kind) {
  return std::ranges::find(names, kind, &std::pair<const std::string, Kind>::second)->first;
}

} // namespace

const std::map<std::string, Part> &parts() {
  static const std::map<std::string, Part> all = {{"tune", Part::tune}, {"check", Part::check}};
  return all;
}

const std::map<std::string, Family> &families() {
  static const std::map<std::string, Family> all = {{"usual", Family::usual}, {"hard", Family::hard}};
  return all;
}

std::string name_of(Part part) { return name_in(parts(), part); }
std::string name_of(Family family) { return name_in(families(), family); }

std::string draw_scene(uint64_t seed, Part part, size_t index, Family family) {
  return family == Family::hard ? draw_hard_scene(seed, part, index) : draw_usual_scene(seed, part, index);
}

} // namespace qv::tool::scene
