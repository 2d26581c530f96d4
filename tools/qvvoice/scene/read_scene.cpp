#include <algorithm>
#include <cmath>
#include <filesystem>

#include "scene/scene.h"
#include "scene/section.h"

namespace qv::tool::scene {
namespace {

constexpr Range metres = {0, 100, "m"}, level_range = {-80, 0, "dBov"}, ratio_range = {-60, 80, "dB"};

Point point_of(const std::vector<double> &values) { return {values[0], values[1], values[2]}; }

/// A place at least 5 cm from every wall and, but for the microphone itself, 1 cm from the microphone.
Point place(Section &section, const char *key, const Room &room, Point preset, const Point *microphone) {
  const Point at = section.has(key) ? point_of(section.numbers(key, 3, metres)) : preset;
  constexpr double gap = 0.05;
  const auto inside = [](double value, double size) { return value >= gap && value <= size - gap; };
  if (!inside(at.x, room.size.x) || !inside(at.y, room.size.y) || !inside(at.z, room.size.z))
    section.refuse(key, fmt::format("[{}, {}, {}]", at.x, at.y, at.z),
                   fmt::format("a place inside the room of {} x {} x {} m, 0.05 m from its walls", room.size.x,
                               room.size.y, room.size.z));
  if (microphone && distance(at, *microphone) < 0.01)
    section.refuse(key, "the microphone's own place", "a place at least 0.01 m from it");
  return at;
}

void read_room(Section section, Scene &scene) {
  const Point office = {4.0, 3.2, 2.6};
  scene.room.size = section.has("size") ? point_of(section.numbers("size", 3, {0.5, 100, "m"})) : office;
  scene.room.reverberation_time = section.number("reverberation_time", {0, 2, "s"}, 0.25);
  const Point middle = {scene.room.size.x * 0.45, scene.room.size.y * 0.4, scene.room.size.z * 0.3};
  scene.microphone = place(section, "microphone", scene.room, middle, nullptr);
  const auto [x, y, z] = scene.microphone;
  scene.loudspeaker = place(section, "loudspeaker", scene.room, {x + 0.1, y, z}, &scene.microphone);
  scene.talker = place(section, "talker", scene.room, {x, y + 0.1, z + 0.1}, &scene.microphone);
  section.done();
}

std::vector<std::string> voice_names() {
  std::vector<std::string> names;
  for (const Voice &voice : voices())
    names.push_back(voice.name);
  return names;
}

Speech read_speech(Section &section, const std::filesystem::path &folder, const std::string &preset) {
  if (!section.has("files"))
    return {section.choice("voice", voice_names(), preset), {}};
  if (section.has("voice"))
    section.refuse("files", "both files and voice", "one of them");
  Speech speech{"", section.texts("files")};
  for (std::string &file : speech.files)
    file = (folder / file).string();
  return speech;
}

Talker read_talker(Section section, const Scene &scene, const std::filesystem::path &folder, const std::string &voice) {
  Talker talker{read_speech(section, folder, voice), section.number("level", level_range, -26), {}};
  if (section.choice("sound", {"speech", "music"}, "speech") == "music")
    talker.sound = Sound::music;
  double last = 0;
  for (const auto &row : section.rows("talks", 2, {0, scene.duration, "s"})) {
    if (row[0] < last || row[1] <= row[0])
      section.refuse("talks", fmt::format("[{}, {}]", row[0], row[1]),
                     "[begin, end] in order of time, without overlap");
    talker.talks.push_back({row[0], last = row[1]});
  }
  section.done();
  return talker;
}

Driver read_driver(Section section) {
  const Driver driver{section.number("resonance", {50, 2000, "Hz"}, 500), section.number("quality", {0.3, 10, ""}, 1.5),
                      section.number("limit", {-60, 20, "dBFS"}, -12), section.number("heating", {0, 12, "dB"}, 0),
                      section.number("heating_time", {0.05, 60, "s"}, 2)};
  section.done();
  return driver;
}

Echo read_echo(Section section, const Scene &scene) {
  constexpr Range delay = {0, 2, "s"};
  Echo echo{section.number("delay", delay, 0.05),
            section.number("to_near", ratio_range, 0),
            section.optional_number("saturation", {-20, 40, "dB"}),
            section.choice("clipping", {"soft", "hard"}, "soft") == "hard" ? Clipping::hard : Clipping::soft,
            section.has("driver") ? std::optional(read_driver(section.section("driver"))) : std::nullopt,
            section.number("drift", {-1000, 1000, "ppm"}, 0),
            {}};
  double last = 0;
  for (Section &change : section.sections("changes")) {
    const double time = change.number("time", {last, scene.duration, "s"});
    echo.changes.push_back(
        {last = time, change.optional_number("delay", delay), {}, change.optional_number("gain", ratio_range)});
    if (change.has("loudspeaker"))
      echo.changes.back().loudspeaker = place(change, "loudspeaker", scene.room, {}, &scene.microphone);
    change.done();
  }
  section.done();
  return echo;
}

Noise read_noise(Section section, const std::filesystem::path &folder) {
  const std::vector<std::string> kinds = {"none", "white", "pink", "babble", "file"};
  const std::string kind = section.choice("kind", kinds, "none");
  Noise noise{NoiseKind(std::ranges::find(kinds, kind) - kinds.begin()),
              section.number("snr", ratio_range, 30),
              "",
              {"en", "ru"}};
  if (section.has("voices"))
    noise.voices = section.choices("voices", voice_names());
  if (noise.kind == NoiseKind::file) {
    noise.file = section.text("file", "");
    if (noise.file.empty())
      section.refuse("file", "nothing", "the path of a recording");
    noise.file = (folder / noise.file).string();
  }
  section.done();
  return noise;
}

/// A fault and, with `every`, the same again and again. @param last  time of the one before
void read_fault(Section section, const Scene &scene, double frame, std::vector<Fault> &faults, double least) {
  Fault fault{};
  const Range frames = {1, 10, "frames"};
  fault.time = section.number("time", {least, scene.duration, "s"});
  fault.side = section.choice("side", {"microphone", "reference"}, "microphone") == "reference" ? Side::reference
                                                                                                : Side::microphone;
  fault.frame = frame;
  const auto lost = section.optional_number("lost", frames), repeated = section.optional_number("repeated", frames),
             silent = section.optional_number("silent", {0.01, scene.duration, "s"});
  if (lost.has_value() + repeated.has_value() + silent.has_value() != 1)
    section.refuse("time", "a fault without a kind, or with several", "one of lost, repeated (frames), silent (s)");
  fault.kind = lost ? FaultKind::lost : repeated ? FaultKind::repeated : FaultKind::silent;
  fault.seconds = silent ? *silent : frame * std::round(lost ? *lost : *repeated);
  const auto every = section.optional_number("every", {0.5, scene.duration, "s"});
  for (int n = 0; n == 0 || (every && fault.time + n * *every < scene.duration); ++n) {
    faults.push_back(fault);
    faults.back().time += n * every.value_or(0);
  }
  section.done();
}

void read_stream(Section section, Scene &scene) {
  const double frame = 1e-3 * section.number("frame_ms", {16, 20, "ms"}, 20);
  double least = 0;
  for (Section &fault : section.sections("faults")) {
    const size_t first = scene.faults.size();
    read_fault(fault, scene, frame, scene.faults, least);
    least = scene.faults[first].time;
  }
  std::ranges::stable_sort(scene.faults, {}, &Fault::time);
  section.done();
}

} // namespace

Scene parse_scene(std::string_view text, const std::string &path) {
  const toml::table table = parse_toml(text, path);
  Section top(path, "", table);
  Scene scene;
  scene.text = text.substr(0, text.find("\n[truth]"));
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  scene.title = top.text("title", "");
  scene.duration = top.number("duration", {1, 600, "s"});
  scene.seed = uint64_t(top.number("seed", {0, 1e9, ""}, 1));
  read_room(top.section("room"), scene);
  scene.far = read_talker(top.section("far"), scene, folder, "en");
  scene.near = read_talker(top.section("near"), scene, folder, "ru");
  scene.echo = read_echo(top.section("echo"), scene);
  scene.noise = read_noise(top.section("noise"), folder);
  read_stream(top.section("stream"), scene);
  top.section("truth"); // of an earlier result: it will be made anew
  top.done();
  return scene;
}

Scene read_scene(const std::string &path) { return parse_scene(read_text(path), path); }

} // namespace qv::tool::scene
