// Calls made from a scene, measured against what the scene says.

#include <algorithm>
#include <numbers>
#include <numeric>
#include <set>

#include "audio/audio.h"
#include "process/files.h"
#include "scene/draw.h"
#include "scene/loudspeaker.h"
#include "scene/music.h"
#include "scene/noise.h"
#include "scene/render.h"
#include "signal/correlation.h"
#include "support/error.h"

namespace qv::tool::scene {
namespace {

constexpr int rate = 16000;

/// A folder with "speech" that needs no package: noise in syllables of 300 ms with gaps of 100 ms.
class SceneTest : public InFolder {
protected:
  SceneTest() {
    for (const uint64_t seed : {1, 2}) {
      Signal words = white_noise(10 * rate, Random(seed));
      for (size_t i = 0; i < words.size(); ++i)
        words[i] *= i % 6400 < 4800 ? 0.05 : 0;
      put_wav(seed == 1 ? "one.wav" : "two.wav", rate, to_samples(words));
    }
  }
  Call call(const std::string &text) const {
    SpeechReader reader(rate);
    return render(parse_scene(text, at("scene.toml")), reader, rate);
  }
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
saturation = 6
to_near = 5
[noise]
kind = "pink"
snr = 20
)";

TEST_F(SceneTest, levels_and_truth_are_those_of_the_scene) {
  const Call made = call(both);
  EXPECT_NEAR(*active_level_db(to_signal(made.ref), rate), -20, 0.1);
  EXPECT_NEAR(*active_level_db(to_signal(made.near), rate), -30, 0.1);
  EXPECT_NEAR(*active_level_db(to_signal(made.echo), rate), -25, 0.1);
  EXPECT_NEAR(*to_db(power(to_signal(made.noise))), -50, 0.1);
  ASSERT_EQ(made.mic.size(), 12u * rate);
  for (size_t i = 0; i < made.mic.size(); ++i)
    ASSERT_NEAR(made.mic[i], made.near[i] + made.echo[i] + made.noise[i], 2) << i;
  EXPECT_NEAR(made.truth.far->front().begin, 0.05, 0.02) << "the default delay";
  EXPECT_NEAR(made.truth.far->back().end, 6.3, 0.3) << "reverberation and hangover";
  EXPECT_NEAR(made.truth.near->front().begin, 6.5, 0.02);
}

// The cross-correlation knows nothing of the renderer: in the two streams it finds bulk delay and air, each jump, the
// drift, and what lost or repeated frames of either side move, as the truth says and hand arithmetic gives.
TEST_F(SceneTest, delay_and_gain_are_those_in_the_truth) {
  const std::string head = "duration = 30\n[room]\nreverberation_time = 0.1\n[far]\nfiles = [\"one.wav\"]\n"
                           "talks = [[0, 30]]\n[echo]\ndelay = 0.2\n";
  const auto faults = [](const std::string &list) { return "[stream]\nfaults = [" + list + "]\n"; };
  const struct {
    std::string words;
    double moved; ///< s, the delay from 3 s to 27 s
    size_t events;
  } cases[] = {
      {"", 0, 0},
      {"changes = [{time = 15, delay = 0.32}]", 0.12, 1},
      {"drift = 200", 24 * 200e-6, 0},
      {faults("{ time = 15, lost = 5 }"), -0.1, 1},
      {faults("{ time = 15, repeated = 10 }"), 0.2, 1},
      {faults("{ time = 15, side = 'reference', lost = 5 }"), 0.1, 1},
      {faults("{ time = 15, side = 'reference', repeated = 5 }"), -0.1, 1},
      {faults("{ time = 15, lost = 5 }, { time = 15, repeated = 5 }"), 0, 1},
      {faults("{ time = 13, side = 'reference', lost = 1, every = 1.2 }, { time = 13.5, lost = 3 }"), 12 * 0.02 - 0.06,
       15}, // the echo of the last comes too late
  };
  for (const auto &[words, moved, events] : cases) {
    const Call made = call(head + words);
    const bool drifts = events == 0 && moved > 0;
    const double start = 0.2 + 0.1 / speed_of_sound + (drifts ? 3 * 200e-6 : 0);
    ASSERT_EQ(made.mic.size(), 30u * rate);
    EXPECT_NEAR(*delay_at(made.truth, 3), start, 1e-5) << words;
    EXPECT_NEAR(*delay_at(made.truth, 27), start + moved, 1e-5) << words;
    EXPECT_EQ(made.truth.events.size(), events) << words;
    EXPECT_TRUE(events == 0 || made.truth.events[0].new_delay == (moved != 0)) << words;
    // With drift the peak lies somewhere among the delays of its window.
    const double tolerance = 1e-4 + (drifts ? moved / 24 * DelaySearch().window / 2 : 0);
    size_t compared = 0;
    for (const DelayPoint &point : delay_points(to_signal(made.mic), to_signal(made.ref), rate))
      if (point.time < 12 || (events <= 1 && point.time > 18)) {
        EXPECT_NEAR(point.delay, *delay_at(made.truth, point.time), tolerance) << words << " at " << point.time;
        ++compared;
      }
    EXPECT_GT(compared, events <= 1 ? 15u : 5u) << words;
  }
  const Signal echo = to_signal(call(head + "changes = [{time = 15, gain = 6}]").echo);
  const SignalView view = echo;
  EXPECT_NEAR(*to_db(power(view.subspan(16 * rate, 10 * rate)) / power(view.subspan(4 * rate, 10 * rate))), 6, 0.5);
}

TEST_F(SceneTest, a_repeated_frame_is_the_last_one_each_time) {
  const Call made = call("duration = 5\n[far]\nfiles = ['one.wav']\ntalks = [[0, 5]]\n"
                         "[stream]\nframe_ms = 16\nfaults = [{ time = 2.1, repeated = 3 }]\n");
  const auto last = made.mic.begin() + rate * 21 / 10 - 256;
  for (const int n : {1, 2, 3})
    EXPECT_TRUE(std::equal(last, last + 256, last + n * 256)) << n;
  EXPECT_FALSE(std::equal(last, last + 256, last + 4 * 256));
}

TEST_F(SceneTest, silent_streams_are_zeros_and_in_the_truth) {
  const Call made = call("duration = 12\n[far]\nfiles = ['one.wav']\ntalks = [[0, 12]]\n[noise]\nkind = 'white'\n"
                         "[stream]\nfaults = [{time = 3, silent = 2}, {time = 8, silent = 1.5, side = 'reference'}]\n");
  const auto zeros = [](const std::vector<int16_t> &stream, double begin, double end) {
    return std::count(stream.begin() + std::ptrdiff_t(begin * rate), stream.begin() + std::ptrdiff_t(end * rate), 0);
  };
  EXPECT_EQ(zeros(made.mic, 3, 5), 2 * rate);
  EXPECT_LT(zeros(made.mic, 5, 12), rate);
  EXPECT_EQ(zeros(made.ref, 8, 9.5), 1.5 * rate);
  EXPECT_GT(*to_db(power(SignalView(to_signal(made.echo)).subspan(8 * rate, rate))), -50) << "the loudspeaker plays on";
  write_call(made, parse_scene("duration = 12", ""), folder.string());
  const auto truth = read_truth(at("scene.toml"));
  ASSERT_EQ(truth->muted.size(), 1u);
  EXPECT_NEAR(truth->muted[0].end, 5, 1e-6);
  ASSERT_EQ(truth->no_reference.size(), 1u);
  EXPECT_NEAR(truth->no_reference[0].begin, 8.05 + 0.1 / speed_of_sound, 1e-4);
  ASSERT_EQ(truth->events.size(), 2u);
  EXPECT_FALSE(truth->events[0].new_delay || truth->events[0].new_path);
}

Signal tone(double frequency, double level, double seconds) {
  Signal tone(size_t(seconds * rate));
  for (size_t i = 0; i < tone.size(); ++i)
    tone[i] = std::sqrt(2) * gain_from_db(level) * std::sin(2 * std::numbers::pi * frequency * double(i) / rate);
  return tone;
}

TEST(Loudspeaker, distorts_more_when_louder_remembers_and_warms_up) {
  const Driver driver{500, 1.5, -12, 0, 2};
  Driver ideal = driver;
  ideal.limit = 200;
  double last = -200;
  for (const double level : {-40, -30, -20, -10}) {
    const Signal in = white_noise(2 * rate, Random(3));
    Signal quiet = in;
    scale(quiet, gain_from_db(level));
    const double now = *distortion_db(driven(quiet, ideal, rate), driven(quiet, driver, rate));
    EXPECT_GT(now, last + 4) << level;
    last = now;
  }
  // Memory: a low note, whose excursion is large, weakens a high one; at the same level a high note does not.
  const auto high_note = [&](double other) {
    Signal notes = tone(3000, -40, 1);
    const Signal loud = tone(other, -12, 1), carrier = tone(3000, 0, 1);
    std::ranges::transform(notes, loud, notes.begin(), std::plus());
    const Signal out = driven(notes, driver, rate);
    return std::abs(std::inner_product(out.begin() + rate / 2, out.end(), carrier.begin() + rate / 2, 0.0));
  };
  EXPECT_LT(*to_db(high_note(400) / high_note(6000)), -1);
  // Heat: at the signal's own power the gain ends `heating` dB down, after about its time constant.
  ideal.heating = 3;
  const Signal hot = driven(tone(2000, -20, 12), ideal, rate);
  const auto level_at = [&](double time) {
    return *to_db(power(SignalView(hot).subspan(size_t(time * rate), size_t(rate) / 10)));
  };
  EXPECT_NEAR(level_at(11) - level_at(0.01), -3, 0.15);
  EXPECT_GT(level_at(1) - level_at(0.01), -2);
  Signal square = {0.5, -1, 0.2};
  clip(square, 6.0206, Clipping::hard);
  EXPECT_NEAR(square[0], 0.5, 1e-6);
  EXPECT_NEAR(square[1], -0.5, 1e-6);
  EXPECT_EQ(square[2], 0.2);
}

TEST(Music, has_no_pause_spreads_over_the_band_and_hangs_on_the_seed) {
  for (const uint64_t seed : {1, 2, 3}) {
    const Signal one = music(10 * rate, rate, Random(seed));
    const std::vector<double> powers = frame_powers(one, rate);
    size_t quiet = 0;
    for (size_t i = 0; i < powers.size(); ++i)
      quiet += powers[i] < from_db(-40) * power(one);
    EXPECT_LT(quiet, powers.size() / 20) << seed;
    EXPECT_NE(one, music(10 * rate, rate, Random(seed + 7)));
  }
}

// Schroeder's backward integration, slope between -5 and -25 dB. Image sources in a box with equal walls decay a
// little slower than Eyring's diffuse field.
TEST(Room, decays_in_the_reverberation_time) {
  for (const double seconds : {0.2, 0.4}) {
    const Response response = impulse_response({{5, 4, 3}, seconds}, {1.1, 1.3, 1.2}, {3.7, 2.9, 1.7}, rate);
    Signal rest(response.taps.size() + 1);
    for (size_t i = response.taps.size(); i-- > 0;)
      rest[i] = rest[i + 1] + response.taps[i] * response.taps[i];
    const auto falls_to = [&](double db) {
      return double(std::ranges::find_if(rest, [&](double x) { return x <= rest[0] * from_db(db); }) - rest.begin());
    };
    EXPECT_NEAR(3 * (falls_to(-25) - falls_to(-5)) / rate / seconds, 1.1, 0.2) << seconds;
  }
}

// Any machine, compiler or standard library that gives other samples gives another hash (FNV-1a).
TEST_F(SceneTest, samples_are_the_same_everywhere_and_made_again_from_the_result) {
  const std::string text = both + "[room]\nreverberation_time = 0.2\n";
  const Call made = call(text);
  uint64_t hash = 0xCBF29CE484222325;
  for (const int16_t sample : made.mic)
    hash = (hash ^ uint16_t(sample)) * 0x100000001B3;
  EXPECT_EQ(hash, 3183326577860913035u);
  EXPECT_NE(call("seed = 2\n" + text).mic, made.mic);

  const std::string path = at("scene.toml");
  write_call(made, parse_scene(text, path), folder.string());
  const auto truth = read_truth(path);
  ASSERT_TRUE(truth && truth->far && truth->near);
  EXPECT_EQ(truth->far->size(), made.truth.far->size());
  EXPECT_NEAR(*delay_at(*truth, 1), *delay_at(made.truth, 1), 1e-6);
  SpeechReader reader(rate);
  EXPECT_EQ(render(read_scene(path), reader, rate).mic, made.mic);
  EXPECT_EQ(read_audio({at("mic.wav"), 0, {}}).audio.samples, made.mic);
}

TEST(SceneFile, every_fault_is_named_with_its_place) {
  const std::pair<const char *, const char *> cases[] = {
      {"title = 'x'", "s.toml:1: duration: found nothing; a number from 1 to 600 s is needed"},
      {"duration = nan", "s.toml:1: duration: found nan"},
      {"duration = 601", "from 1 to 600 s"},
      {"duration = 9\n[echo]\ndelays = 1", "s.toml:3: echo.delays: unknown key; known here: changes, clipping, delay"},
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
      {"duration = 9\n[noise]\nvoices = ['en', 'xx']", "noise.voices: found \"xx\"; each one of en, ru"},
      {"duration = 9\n[stream]\nfaults = [{time = 1}]", "s.toml:3: stream.faults.time: found a fault without a kind"},
      {"duration = 9\n[stream]\nfaults = [{time = 1, lost = 11}]",
       "stream.faults.lost: found 11; a number from 1 to 10"},
      {"duration = 9\n[stream]\nfaults = [{time = 2, lost = 1}, {time = 1, lost = 1}]",
       "found 1; a number from 2 to 9"},
      {"duration = 9\n[echo]\ndriver = {limit = 21}", "echo.driver.limit: found 21"},
  };
  for (const auto &[text, message] : cases) {
    const std::string said = refusal([&] { parse_scene(text, "s.toml"); });
    EXPECT_NE(said.find(message), std::string::npos) << text << said;
  }
}

TEST(SceneFile, built_in_ones_are_sound) {
  EXPECT_GE(built_in().size(), 8u);
  for (const BuiltIn &one : built_in())
    EXPECT_NO_THROW(parse_scene(one.text, std::string(one.name))) << one.name;
}

// A scene hangs on seed, part and index alone; what is tuned on and what is held back share no voice, and the hard
// ones of either part mix everything.
TEST(SceneFile, drawn_ones_keep_the_parts_apart_and_the_hard_ones_mix_everything) {
  std::set<std::pair<double, double>> rooms;
  for (const auto &[family, count] : {std::pair(Family::usual, 200u), {Family::hard, 32u}})
    for (const Part part : {Part::tune, Part::check}) {
      const std::set<std::string> own =
          part == Part::tune ? std::set<std::string>{"en", "ru"} : std::set<std::string>{"fr", "it"};
      std::set<std::string> seen;
      const auto note = [&](bool has, const char *what) {
        if (has)
          seen.insert(what);
      };
      for (size_t i = 0; i < count; ++i) {
        const Scene one = parse_scene(draw_scene(7, part, i, family), "");
        EXPECT_EQ(one.text, draw_scene(7, part, i, family));
        EXPECT_NE(one.text, draw_scene(8, part, i, family));
        EXPECT_EQ((std::set{one.far.speech.voice, one.near.speech.voice}), own);
        rooms.insert({one.room.size.x, one.room.size.y});
        if (family != Family::hard)
          continue;
        EXPECT_EQ((std::set(one.noise.voices.begin(), one.noise.voices.end())), own);
        note(one.far.sound == Sound::music, "music");
        note(one.noise.kind == NoiseKind::babble, "babble");
        note(one.echo.driver.has_value(), "driver");
        note(one.echo.saturation.has_value(), one.echo.clipping == Clipping::hard ? "hard" : "soft");
        note(one.echo.delay > 0.3, "late");
        note(std::abs(one.echo.drift) > 100, "drift");
        note(one.echo.changes.size() == 2, "two changes");
        for (const Change &change : one.echo.changes) {
          note(change.delay.has_value(), "jump");
          note(change.gain.has_value(), "gain");
          note(change.loudspeaker.has_value(), "path");
        }
        for (const Fault &fault : one.faults)
          seen.insert(fmt::format("{} of {}", int(fault.kind), int(fault.side)));
        note(one.faults.size() > 3, "periodic");
      }
      EXPECT_EQ(seen.size(), family == Family::hard ? 18u : 0u) << fmt::format("{}", fmt::join(seen, ", "));
    }
  EXPECT_GT(rooms.size(), 400u);
}

} // namespace
} // namespace qv::tool::scene
