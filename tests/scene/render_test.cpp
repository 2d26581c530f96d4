// Calls made from a scene, measured against what the scene says.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "audio/audio.h"
#include "scene/draw.h"
#include "scene/echo_path.h"
#include "scene/noise.h"
#include "scene/render.h"
#include "signal/correlation.h"
#include "support/error.h"

namespace qv::tool::scene {
namespace {

/// A folder with "speech" that needs no package: noise in syllables of 300 ms with gaps of 100 ms.
class SceneTest : public ::testing::Test {
protected:
  SceneTest() {
    std::filesystem::create_directories(folder);
    for (const auto &[name, seed] : {std::pair("one.wav", 1), std::pair("two.wav", 2)}) {
      Signal words = white_noise(10 * rate, Random(uint64_t(seed)));
      for (size_t i = 0; i < words.size(); ++i)
        words[i] *= i % 6400 < 4800 ? 0.05 : 0;
      OutputFile file((folder / name).string());
      write_wav(file, {rate, to_samples(words)});
      file.commit();
    }
  }
  ~SceneTest() override { std::filesystem::remove_all(folder); }

  Call call(const std::string &text) {
    SpeechReader reader(rate);
    return render(parse_scene(text, (folder / "scene.toml").string()), reader, rate);
  }

  static constexpr int rate = 16000;
  const std::filesystem::path folder =
      std::filesystem::path(::testing::TempDir()) / ::testing::UnitTest::GetInstance()->current_test_info()->name();
};

const std::string both = R"(
duration = 12
[far]
files = ["one.wav"]
level = -20
talks = [[0, 6]]
[near]
files = ["two.wav"]
level = -30
talks = [[6.5, 12]]
[echo]
to_near = 5
[noise]
kind = "white"
snr = 20
)";

TEST_F(SceneTest, levels_are_those_of_the_scene) {
  const Call made = call(both);
  EXPECT_NEAR(*active_level_db(to_signal(made.ref), rate), -20, 0.1);
  EXPECT_NEAR(*active_level_db(to_signal(made.near), rate), -30, 0.1);
  EXPECT_NEAR(*active_level_db(to_signal(made.echo), rate), -25, 0.1);
  EXPECT_NEAR(*to_db(power(to_signal(made.noise))), -50, 0.1);
  ASSERT_EQ(made.mic.size(), 12u * rate);
  for (size_t i = 0; i < made.mic.size(); ++i)
    ASSERT_NEAR(made.mic[i], made.near[i] + made.echo[i] + made.noise[i], 2) << i;
}

TEST_F(SceneTest, the_truth_says_who_is_heard_when) {
  const Truth truth = call(both).truth;
  ASSERT_TRUE(truth.far && truth.near);
  ASSERT_FALSE(truth.far->empty() || truth.near->empty());
  EXPECT_NEAR(truth.far->front().begin, 0.05, 0.02) << "the default delay";
  EXPECT_GT(truth.far->back().end, 6.0);
  EXPECT_LT(truth.far->back().end, 6.6) << "reverberation and hangover";
  EXPECT_NEAR(truth.near->front().begin, 6.5, 0.02);
}

// The cross-correlation knows nothing of the renderer: it finds bulk delay and air, each jump, and the drift.
TEST_F(SceneTest, the_delay_is_the_one_in_the_truth) {
  const std::string head =
      "duration = 30\n[room]\nreverberation_time = 0.1\n[far]\nfiles = [\"one.wav\"]\ntalks = [[0, 30]]\n";
  const struct {
    const char *echo;
    double begin, end; ///< delay at 3 s and at 27 s
    size_t events;
  } cases[] = {
      {"[echo]\ndelay = 0.08", 0.08, 0.08, 0},
      {"[echo]\ndelay = 0.08\nchanges = [{time = 15, delay = 0.2}]", 0.08, 0.2, 1},
      {"[echo]\ndelay = 0.08\ndrift = 200", 0.08 + 3 * 200e-6, 0.08 + 27 * 200e-6, 0},
  };
  const double air = 0.1 / speed_of_sound;
  for (const auto &one : cases) {
    const Call made = call(head + one.echo);
    const auto points = delay_points(to_signal(made.mic), to_signal(made.ref), rate);
    ASSERT_GT(points.size(), 15u) << one.echo;
    // With drift the peak lies somewhere among the delays of its window.
    const double tolerance = 1e-4 + (one.end - one.begin) / 24 * DelaySearch().window / 2 * (one.events == 0);
    for (const DelayPoint &point : points)
      if (point.time < 12 || point.time > 18) {
        EXPECT_NEAR(point.delay, *delay_at(made.truth, point.time), tolerance) << one.echo << " at " << point.time;
      }
    if (one.events == 0) {
      EXPECT_NEAR(summarise(points)->drift_ppm, (one.end - one.begin) / 24 * 1e6, 3) << one.echo;
    }
    EXPECT_NEAR(*delay_at(made.truth, 3), one.begin + air, 1e-5) << one.echo;
    EXPECT_NEAR(*delay_at(made.truth, 27), one.end + air, 1e-5) << one.echo;
    EXPECT_EQ(made.truth.events.size(), one.events) << one.echo;
  }
}

TEST_F(SceneTest, gain_and_saturation_act_on_the_echo) {
  const std::string head = "duration = 12\n[far]\nfiles = [\"one.wav\"]\ntalks = [[0, 12]]\n[echo]\n";
  const Call louder = call(head + "changes = [{time = 6, gain = 6}]");
  const Signal echo = to_signal(louder.echo);
  const auto level = [&](int second) {
    return *to_db(power(SignalView(echo).subspan(size_t(second) * rate, 4 * rate)));
  };
  EXPECT_NEAR(level(7) - level(1), 6, 0.5);

  Signal clipped = {0, 0.001, -0.5, 1.0};
  soft_clip(clipped, 6.0206); // the limit is half the peak
  EXPECT_NEAR(clipped[1], 0.001, 1e-6);
  EXPECT_NEAR(clipped[2], -0.5 / std::sqrt(2.0), 1e-5);
  EXPECT_NEAR(clipped[3], 1 / std::sqrt(5.0), 1e-5);
}

/// FNV-1a.
uint64_t hash(const std::vector<int16_t> &samples) {
  uint64_t h = 0xCBF29CE484222325;
  for (const int16_t sample : samples)
    h = (h ^ uint16_t(sample)) * 0x100000001B3;
  return h;
}

// Any machine, compiler or standard library that gives other samples gives another hash.
TEST_F(SceneTest, samples_are_the_same_everywhere) {
  const std::string text = both + "[room]\nreverberation_time = 0.2\n";
  const Call made = call(text);
  EXPECT_EQ(hash(made.mic), hash(call(text).mic));
  EXPECT_EQ(hash(made.mic), 15256041937279307279u);
  EXPECT_NE(hash(made.mic), hash(call("seed = 2\n" + text).mic));
}

TEST_F(SceneTest, a_result_can_be_read_and_made_again) {
  const std::string text = both + "[room]\nreverberation_time = 0\n";
  const Scene described = parse_scene(text, (folder / "x.toml").string());
  const Call made = call(text);
  write_call(made, described, folder.string());
  const std::string path = (folder / "scene.toml").string();
  const auto truth = read_truth(path);
  ASSERT_TRUE(truth && truth->far && truth->near);
  EXPECT_EQ(truth->far->size(), made.truth.far->size());
  EXPECT_NEAR(*delay_at(*truth, 1), *delay_at(made.truth, 1), 1e-6);
  SpeechReader reader(rate);
  EXPECT_EQ(render(read_scene(path), reader, rate).mic, made.mic);
  EXPECT_EQ(read_audio({(folder / "mic.wav").string(), 0, {}}).audio.samples, made.mic);
}

TEST(SceneFile, every_fault_is_named_with_its_place) {
  const struct {
    const char *text, *message;
  } cases[] = {
      {"title = 'x'", "s.toml:1: duration: found nothing; a number from 1 to 600 s is needed"},
      {"duration = 'long'", "s.toml:1: duration: found 'long'; a number"},
      {"duration = nan", "s.toml:1: duration: found nan"},
      {"duration = 9000", "from 1 to 600 s"},
      {"duration = 9\nsead = 1", "s.toml:2: sead: unknown key; known here: duration, echo"},
      {"duration = 9\n[echo]\ndelays = 1", "s.toml:3: echo.delays: unknown key; known here: changes, delay"},
      {"duration = 9\n[echo]\nchanges = [{time = 1},\n{time = 0.5}]",
       "s.toml:4: echo.changes.time: found 0.5; a number from 1 to 9 s"},
      {"duration = 9\n[room]\nsize = [3, 3]", "s.toml:3: room.size: found [ 3, 3 ]; a list of 3 numbers"},
      {"duration = 9\n[room]\nloudspeaker = [9, 1, 1]",
       "room.loudspeaker: found [9, 1, 1]; a place inside the room of 4 x 3.2 x 2.6 m"},
      {"duration = 9\n[far]\ntalks = [[1, 2], [1.5, 3]]", "s.toml:3: far.talks: found [1.5, 3]"},
      {"duration = 9\n[near]\nvoice = 'xx'", "near.voice: found \"xx\"; one of en, ru, fr, it is needed"},
      {"duration = 9\n[near]\nvoice = 'en'\nfiles = ['a']", "near.files: found both"},
      {"duration = 9\n[noise]\nkind = 'file'", "noise.file: found nothing"},
      {"duration = 9\nnoise = 3", "noise: found 3; a table is needed"},
      {"duration = = 9", "s.toml:1: "},
  };
  for (const auto &one : cases) {
    try {
      parse_scene(one.text, "s.toml");
      ADD_FAILURE() << "accepted: " << one.text;
    } catch (const InputError &error) {
      EXPECT_NE(std::string(error.what()).find(one.message), std::string::npos) << error.what();
    }
  }
}

TEST(SceneFile, the_built_in_set_is_sound) {
  EXPECT_GE(built_in().size(), 8u);
  for (const BuiltIn &one : built_in())
    EXPECT_NO_THROW(parse_scene(one.text, std::string(one.name))) << one.name;
}

TEST(DrawnScene, is_sound_and_its_part_has_talkers_and_rooms_of_its_own) {
  for (size_t i = 0; i < 200; ++i) {
    const std::string tune = draw_scene(7, Part::tune, i), check = draw_scene(7, Part::check, i);
    const Scene a = parse_scene(tune, "drawn"), b = parse_scene(check, "drawn");
    EXPECT_EQ(tune, draw_scene(7, Part::tune, i));
    EXPECT_NE(a.room.size, b.room.size);
    for (const Talker &talker : {a.far, a.near})
      EXPECT_TRUE(talker.speech.voice == "en" || talker.speech.voice == "ru");
    for (const Talker &talker : {b.far, b.near})
      EXPECT_TRUE(talker.speech.voice == "fr" || talker.speech.voice == "it");
    EXPECT_NE(a.far.speech.voice, a.near.speech.voice);
    EXPECT_EQ(a.echo.to_near, 0);
  }
  EXPECT_NE(draw_scene(7, Part::tune, 0), draw_scene(8, Part::tune, 0));
}

} // namespace
} // namespace qv::tool::scene
