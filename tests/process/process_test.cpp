// The command as its user meets it. Recordings come in as they are, or are refused with the reason; a result is whole
// or not there, and what stood in its place stays until then.

#include "audio/audio.h"

#include <cmath>
#include <csignal>
#include <numbers>

#include <nlohmann/json.hpp>

#include "call/calls.h"
#include "process_fixture.h"
#include "support/output_file.h"

namespace qv::tool {
namespace {

using AudioFile = InFolder;
using OutputFiles = InFolder;

TEST_F(AudioFile, samples_come_through_exact_or_clipped_with_a_count) {
  const Samples extremes = {0, 1, -1, 12345, -12345, 32767, -32768, 256};
  const std::vector<float> floats = {0.f, 0.5f, -1.f, 1.f, 1.5f, -1.5f, 0.4f / 32768, 0.6f / 32768};
  const struct {
    std::string path;
    Samples samples;
    size_t clipped;
  } cases[] = {
      {put_wav("a.wav", 8000, extremes), extremes, 0},
      {put_audio("a.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 8000, 1, extremes), extremes, 0},
      {put_audio("a24.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 8000, 1, extremes), extremes, 0},
      {put_audio("a32.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_32, 8000, 1, extremes), extremes, 0},
      {put_audio("f.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 8000, 1, floats),
       {0, 16384, -32768, 32767, 32767, -32768, 0, 1},
       2},
  };
  for (const auto &[path, samples, clipped] : cases) {
    const Recording recording = read_audio({.path = path});
    EXPECT_EQ(recording.audio.samples, samples) << path;
    EXPECT_EQ(recording.audio.rate, 8000);
    EXPECT_EQ(recording.clipped, clipped) << path;
  }
}

TEST_F(AudioFile, a_channel_is_chosen_and_headerless_samples_are_read) {
  const std::string stereo = put_wav("s.wav", 8000, {1, -1, 2, -2, 3, -3}, 2);
  EXPECT_EQ(read_audio({.path = stereo, .channel = 2}).audio.samples, (Samples{-1, -2, -3}));
  const std::string raw = put("s.raw", "\x01\x02\x03\x04");
  const auto samples = [&](const char *encoding, int channels, int channel) {
    return read_audio({.path = raw, .channel = channel, .raw = RawFormat{encoding, 8000, channels}}).audio.samples;
  };
  EXPECT_EQ(samples("s16le", 1, 0), (Samples{0x201, 0x403}));
  EXPECT_EQ(samples("s16be", 1, 0), (Samples{0x102, 0x304}));
  EXPECT_EQ(samples("s8", 2, 2), (Samples{0x200, 0x400}));
}

// Catches a converter that shifts, scales or cuts: the tone of the other rate is what comes out, away from the ends,
// where a filter sees silence.
TEST(ConvertRate, keeps_level_place_and_length) {
  const auto tone = [](int rate) {
    Samples samples;
    for (int i = 0; i < rate; ++i)
      samples.push_back(int16_t(std::lround(10000 * std::sin(2 * std::numbers::pi * 1000.0 * i / rate))));
    return samples;
  };
  for (const auto &[from, to] : {std::pair{44100, 16000}, {8000, 16000}, {48000, 8000}}) {
    Recording recording{{from, tone(from)}, 1, from, 0, ""};
    convert_rate(recording, to);
    const Samples &got = recording.audio.samples, expected = tone(to);
    ASSERT_EQ(got.size(), expected.size());
    const size_t edge = expected.size() / 10, length = expected.size() - 2 * edge;
    EXPECT_LT(test::relative_error(std::span(expected).subspan(edge, length), std::span(got).subspan(edge, length)),
              1e-3);
  }
}

TEST_F(AudioFile, what_cannot_be_used_is_refused_with_the_reason) {
  const std::string whole = bytes_of(put_wav("whole.wav", 8000, Samples(1000, 5)));
  const std::pair<Source, const char *> cases[] = {
      {{.path = at("none.wav")}, "no such file"},
      {{.path = put("text.wav", "not audio at all")}, "cannot be read as audio"},
      {{.path = put_wav("nothing.wav", 8000, {})}, "holds no samples"},
      {{.path = put("cut.wav", whole.substr(0, 1001))}, "promises 2000 bytes of samples, 957 are there"},
      {{.path = put_audio("nan.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 8000, 1, std::vector<float>{0, NAN})},
       "sample 1 is not a number"},
      {{.path = put_wav("stereo.wav", 8000, {1, 2}, 2)}, "has 2 channels; choose one of 1 to 2 with --channel"},
      {{.path = at("whole.wav"), .channel = 2}, "has no channel 2; it has one channel"},
      {{.path = put("odd.raw", "abc"), .raw = RawFormat{"s16le", 8000, 1}}, "3 bytes are not a whole number of s16le"},
      {{.path = at("odd.raw"), .raw = RawFormat{"s17", 8000, 1}}, "raw encoding 's17' is not known"},
  };
  for (const auto &[source, reason] : cases) {
    const std::string said = refusal([&] { read_audio(source); });
    EXPECT_NE(said.find(reason), std::string::npos) << source.path << ": " << said;
    EXPECT_TRUE(said.starts_with(source.path)) << said;
  }
}

std::string number(uint64_t value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i)
    text += char(value >> 8 * i);
  return text;
}

// Untrue sizes would keep a reader busy for minutes: behind the samples they change nothing, before them they are
// refused.
TEST_F(AudioFile, only_format_and_samples_of_a_wav_file_count) {
  const Samples expected = {1, -2, 300, -400};
  const std::string whole = bytes_of(put_wav("whole.wav", 8000, expected));
  const std::string format = whole.substr(12, 24), samples = whole.substr(44);
  const std::string list = "LIST" + number(0xfffffff0, 4) + "INFOINAM" + number(0x7fffffff, 4);
  const auto rf64 = [&](const std::string &between, uint64_t promised) {
    return "RF64" + number(0xffffffff, 4) + "WAVEds64" + number(28, 4) + number(0, 8) + number(promised, 8) +
           number(4, 8) + number(0, 4) + between + "data" + number(0xffffffff, 4) + samples;
  };
  const std::string at_end = whole.substr(0, 12) + "data" + number(8, 4) + samples + format;
  for (const std::string &bytes : {whole + list, rf64(format, 8), rf64(format, 8) + list, at_end})
    EXPECT_EQ(read_audio({.path = put("a.wav", bytes)}).audio.samples, expected) << bytes.substr(0, 4);
  for (const auto &[bytes, reason] :
       {std::pair(rf64(list + format, 8), "promises 4294967280 bytes"),
        {rf64(format, 10), "promises 10 bytes of samples, 8 are there"},
        {whole.substr(0, 12) + "data" + number(8, 4) + samples, "without its part 'fmt '"}}) {
    const std::string said = refusal([&] { read_audio({.path = put("b.wav", bytes)}); });
    EXPECT_NE(said.find(reason), std::string::npos) << said;
  }
}

TEST_F(AudioFile, rates_and_lengths_that_cannot_be_converted_are_refused) {
  for (const int rate : {999, 1000, 768000, 768001})
    EXPECT_EQ(refusal([&] { read_audio({.path = put_wav("rate.wav", rate, {1})}); }).empty(),
              rate >= 1000 && rate <= 768000);
  Recording recording = read_audio({.path = put_wav("one.wav", 48000, {1})});
  EXPECT_NE(refusal([&] { convert_rate(recording, 16000); }).find("one.wav: too short: 1 samples"), std::string::npos);
}

// The decoder reports some cuts and takes others for the end.
TEST_F(AudioFile, a_flac_file_cut_anywhere_is_refused) {
  const std::string whole = bytes_of(
      put_audio("whole.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 8000, 1, test::noise_samples(1, 40000, 9000)));
  for (size_t part = 1; part < 64; ++part)
    EXPECT_THROW(read_audio({.path = put("cut.flac", whole.substr(0, whole.size() * part / 64))}), InputError) << part;
}

/// A shell in the background starts programs with some of them ignored, which OutputFile respects.
const auto hang_up = std::signal(SIGHUP, SIG_DFL), interrupt = std::signal(SIGINT, SIG_DFL),
           quit = std::signal(SIGQUIT, SIG_DFL);

TEST_F(OutputFiles, appears_whole_on_commit_and_not_before_through_a_link_too) {
  put("result", "old");
  fs::create_symlink("result", at("link"));
  for (const std::string &place : {at("result"), at("link")}) {
    const std::string before = bytes_of(place);
    OutputFile(place).write("dropped");
    OutputFile file(place);
    file.write("new ");
    EXPECT_EQ(bytes_of(place), before);
    file.write(place);
    file.commit();
    EXPECT_EQ(bytes_of(at("result")), "new " + place);
  }
  EXPECT_TRUE(fs::is_symlink(at("link")));
  EXPECT_EQ(paths(), (std::set<fs::path>{at("link"), at("result")}));
}

TEST_F(OutputFiles, a_signal_leaves_no_half_file) {
  const std::string place = put("result", "old");
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE, SIGXCPU}) {
    const auto die_while_writing = [&] {
      OutputFile first(place), second(at("other"));
      first.write("half");
      raise(signal);
    };
    EXPECT_EXIT(die_while_writing(), testing::KilledBySignal(signal), "");
    EXPECT_EQ(paths(), std::set<fs::path>{place}) << "signal " << signal;
    EXPECT_EQ(bytes_of(place), "old");
  }
}

TEST_F(OutputFiles, a_place_that_would_lose_something_is_refused) {
  const std::vector<std::string> inputs = {put("input", "precious"), put("other", "")};
  fs::create_symlink("input", at("link"));
  fs::create_hard_link(at("input"), at("twin"));
  const OutputFile open(at("open"));
  for (const auto &[path, reason] : {std::pair(at("input"), "is the input"),
                                     {at("link"), "is the input"},
                                     {at("twin"), "is the input"},
                                     {at("../") + folder.filename().string() + "/input", "is the input"},
                                     {at("./open"), "for two results"},
                                     {folder.string(), "not a regular file"},
                                     {at("none/result"), "No such file or directory"},
                                     {"", "empty file name"}}) {
    const std::string said = refusal([&] { OutputFile(path, inputs); });
    EXPECT_NE(said.find(reason), std::string::npos) << path << ": " << said;
  }
}

// Whole recordings give the very samples that an application gets frame by frame.
TEST_F(Process, each_direction_writes_what_the_frame_calls_give) {
  for (const test::Layout &layout : test::all_layouts) {
    test::Call whole(layout, 60);
    const size_t length = whole.far.size() - 37, mic_length = length - 100; // the last frame is not whole
    std::fill(whole.far.begin() + long(length), whole.far.end(), 0);
    std::fill(whole.mic.begin() + long(mic_length), whole.mic.end(), 0);
    const config::Image image = test::busy_image(layout.rate);
    const test::CallPtr call = test::make_call(layout, image, /*seed*/ 0);
    ASSERT_TRUE(call);
    test::Outputs expected = test::run(call.get(), layout, whole);
    expected.played.resize(length);
    expected.sent.resize(length);
    Samples both;
    for (size_t i = 0; i < length; ++i)
      both.insert(both.end(), {whole.mic[i], expected.played[i]});
    put_wav("both.wav", layout.rate, both, 2);
    put_wav("heard.wav", layout.rate, expected.played);
    put_wav("mic.wav", layout.rate, {whole.mic.begin(), whole.mic.begin() + long(mic_length)});
    put_wav("ref.wav", layout.rate, {whole.far.begin(), whole.far.begin() + long(length)});
    for (const std::string words :
         {"--far ref.wav --mic mic.wav --played played.wav --out out.wav", "--far ref.wav --played played.wav",
          "--mic mic.wav --ref heard.wav --out out.wav", "--stereo both.wav --out out.wav"}) {
      fs::remove(at("out.wav"));
      const CommandResult result = process(words + options(layout));
      EXPECT_EQ(result.status, 0) << words << ": " << result.err;
      EXPECT_EQ(samples("played.wav"), expected.played) << layout << words;
      const Samples sent = words.ends_with("out.wav") ? samples("out.wav") : expected.sent;
      const auto alone = words.starts_with("--far") ? 0 : layout.frame_len; // what is heard ends with the file
      ASSERT_EQ(sent.size(), length);
      EXPECT_TRUE(std::equal(sent.begin(), sent.end() - alone, expected.sent.begin())) << layout << words;
    }
  }
}

// What is compensated is the latency that the library states: a click stands where it was, the last sample of a
// recording included.
TEST_F(Process, compensation_leaves_a_click_in_its_place) {
  for (const test::Layout &layout : test::all_layouts)
    for (const size_t place : {size_t(1000), size_t(1234), size_t(3999)}) {
      config::Image image = test::busy_image(layout.rate);
      image[120] = image[140] = image[440] = 0; // gain control and comfort noise
      put(std::to_string(layout.rate) + ".para", para::packed_bytes(image));
      Samples click(4000);
      click[place] = 20000;
      put_wav("click.wav", layout.rate, click);
      put_wav("silence.wav", layout.rate, Samples(10));
      for (const char *words :
           {"--mic click.wav --ref silence.wav --out out.wav", "--far click.wav --played out.wav"}) {
        EXPECT_EQ(process(words + options(layout) + " --compensate").status, 0) << words;
        const Samples out = samples("out.wav");
        ASSERT_EQ(out.size(), click.size());
        EXPECT_EQ(size_t(std::max_element(out.begin(), out.end()) - out.begin()), place) << layout << words;
      }
    }
}

TEST_F(Process, the_summary_says_what_was_in_effect) {
  put_wav("long.wav", 48000, Samples(6 * 8000 + 480, 32767));
  const CommandResult result =
      process("--mic long.wav --ref ref.wav --out out.wav --trace t.csv --para 16000.para --json");
  ASSERT_EQ(result.status, 0) << result.err;
  const auto summary = nlohmann::json::parse(result.out);
  EXPECT_EQ(summary["frames"], 51); // 1.01 s
  EXPECT_EQ(summary["transmit"]["latency_samples"], 320 + 128);
  EXPECT_GT(summary["inputs"][0]["clipped_samples"], 10000);
  const std::string notes = summary["notes"].dump();
  for (const char *note :
       {"long.wav: mic converted from 48000 to 16000 Hz", "ref.wav: ref converted from 8000 to 16000",
        "ref.wav: ref ends 160 samples (0.010 s) before long.wav; continued with silence"})
    EXPECT_NE(notes.find(note), std::string::npos) << notes;
  const std::string csv = bytes_of(at("t.csv"));
  EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 1 + 51);
  EXPECT_NE(csv.find("\n1.000,51,"), std::string::npos);
}

// Catches stages of the other canceller that are called on.
TEST_F(Process, the_summary_knows_the_state_space_canceller) {
  put("marked.para", para::packed_bytes(test::marked(test::busy_image(8000))));
  const auto stages = [&](const std::string &para) {
    const CommandResult result = process("--mic mic.wav --ref ref.wav --out out.wav --json --para " + para);
    EXPECT_EQ(result.status, 0) << result.err;
    return nlohmann::ordered_json::parse(result.out)["transmit"]["stages"];
  };
  EXPECT_EQ(stages("marked.para").dump(), "{\"state_space_echo_canceller\":true,\"noise_reducer\":true,"
                                          "\"gain_control\":true,\"equaliser\":true}");
  EXPECT_EQ(stages("8000.para").at("echo_canceller"), true);
  EXPECT_EQ(stages("8000.para").size(), 8u);
}

TEST_F(Process, bad_use_is_refused_and_leaves_everything_as_it_was) {
  put("foreign.bin", std::string(1000, '\0'));
  expect_refused(
      "process ",
      {
          {"", "no input: give --mic and --ref"},
          {"--mic mic.wav --out o.wav", "--mic needs the echo reference"},
          {"--mic mic.wav --ref ref.wav", "give --out"},
          {"--far ref.wav", "give --played"},
          {"--far ref.wav --mic mic.wav --ref ref.wav --out o.wav", "--ref excludes --far"},
          {"--far ref.wav --played p.wav --rate 44100", "--rate: 44100 not in {8000,16000}"},
          {"--far ref.wav --played p.wav --para none.bin", "none.bin: parameter file cannot be read"},
          {"--far ref.wav --played p.wav --para foreign.bin", "foreign.bin: not a parameter file: word 9 is 0; 1111"},
          {"--far ref.wav --played p.wav --para 16000.para --rate 8000", "16000.para: parameter file is for 16000 Hz"},
          {"--far ref.wav --played 8000.para --para 8000.para", "8000.para: is the input"},
          {"--far ref.wav --played ./ref.wav", "./ref.wav: is the input ref.wav"},
          {"--far ref.wav --played p.wav --trace p.wav", "p.wav: named for two results"},
          {"--far ref.wav --mic mic.wav --out - --played -", "- is standard output and takes one of --out, --played"},
          {"--far /dev/zero --played p.wav", "/dev/zero: is a device"},
          {"--mik a.wav", "did you mean \"--mic\""},
          {"--far ref.wav --played p.wav --preset balanced-16-20ms", "did you mean \"balanced-16k-20ms\""},
      });
  expect_refused("", {{"proces", "did you mean \"process\""},
                      {"para chek x", "did you mean \"check\""},
                      {"scene --set far-ed --out x", "did you mean \"far-end\""}});
}

// What diagnose would find, as far as a run sees it.
TEST_F(Process, hints_at_what_is_wrong_with_the_recordings) {
  const Samples far = test::noise_samples(5, 20 * 16000, 3000);
  Samples echo(far.size()), loud(far.size());
  for (size_t i = 0; i < far.size(); ++i) {
    echo[i] = int16_t(i < 1600 ? 0 : far[i - 1600] / 2);
    loud[i] = int16_t(std::clamp(far[i] * 12, -32768, 32767));
  }
  put_wav("far.wav", 16000, far);
  put_wav("echo.wav", 16000, echo);
  put_wav("loud.wav", 16000, loud);
  put_wav("silent.wav", 16000, Samples(far.size()));
  const std::pair<const char *, const char *> cases[] = {
      {"--mic echo.wav --ref far.wav", ""},
      {"--mic far.wav --ref echo.wav", "the microphone leads the reference by 100.0 ms: are the two swapped?"},
      {"--mic loud.wav --ref far.wav", "the microphone clips"},
      {"--mic silent.wav --ref far.wav", "the microphone is silent"},
      {"--mic echo.wav --ref silent.wav", "the reference is silent"},
  };
  for (const auto &[words, hint] : cases) {
    const CommandResult result = process(words + std::string(" --out o.wav --json"));
    ASSERT_EQ(result.status, 0) << words << result.err;
    const auto hints = nlohmann::json::parse(result.out).at("hints");
    EXPECT_EQ(hints.size(), *hint ? 1u : 0u) << words << hints;
    if (*hint) {
      EXPECT_NE(hints.dump().find(hint), std::string::npos) << hints;
      EXPECT_NE(hints.dump().find(std::string("qvvoice diagnose ") + words), std::string::npos) << hints;
    }
  }
}

TEST_F(Process, full_disk_is_an_error_and_leaves_no_half_file) {
  const auto before = paths();
  const std::string line = "sh -c 'ulimit -f 8; exec " QVVOICE_COMMAND " process --far ref.wav --played p.wav'";
  EXPECT_NE(std::system(("cd " + folder.string() + " && " + line + " >/dev/null 2>&1").c_str()), 0);
  EXPECT_EQ(paths(), before);
}

TEST_F(Process, nothing_is_lost_in_silence) {
  for (const char *words : {"--help", "--version", "presets", "para check balanced-16k-20ms",
                            "para diff balanced-16k-20ms echo-safe-16k-20ms", "process --help"}) {
    const std::string line = std::string(QVVOICE_COMMAND) + " " + words + " >/dev/full 2>" + at("err");
    EXPECT_EQ(WEXITSTATUS(std::system(line.c_str())), 2) << words;
    const std::string said = bytes_of(at("err"));
    EXPECT_NE(said.find("standard output cannot be written"), std::string::npos) << words << said;
  }
}

TEST_F(Process, has_a_manual_page_per_verb_and_completes_verbs_and_options) {
  ASSERT_EQ(run_command(folder, "manual --out .").status, 0);
  EXPECT_NE(bytes_of(at("qvvoice-measure.1")).find("\\-\\-frame\\-ms"), std::string::npos);
  EXPECT_TRUE(fs::exists(at("qvvoice-para-pack.1")));
  for (const auto &[words, answer] : {std::pair("qvvoice pr", "process presets\n"),
                                      {"qvvoice para pack x.toml --f", "--force\n"},
                                      {"qvvoice process --preset noise-only-8k-1", "noise-only-8k-16ms\n"},
                                      {"qvvoice scene --set far", "far-end\n"},
                                      {"qvvoice tune --plan full", "full-duplex\n"},
                                      {"qvvoice para show echo-safe-16k-1", "echo-safe-16k-16ms\n"},
                                      {"qvvoice report calls --aga", "--against --against-delay --against-para\n"}}) {
    put("complete.sh", std::string("source ./qvvoice.bash\nCOMP_WORDS=(") + words +
                           ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n_qvvoice\necho \"${COMPREPLY[@]}\" >answer\n");
    EXPECT_EQ(std::system(("cd " + folder.string() + " && bash complete.sh").c_str()), 0);
    EXPECT_EQ(bytes_of(at("answer")), answer) << words;
  }
}

} // namespace
} // namespace qv::tool
