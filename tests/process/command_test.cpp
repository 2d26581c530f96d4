// `qvvoice process` as its user meets it.
#include <nlohmann/json.hpp>

#include "audio/audio.h"
#include "call/run.h"
#include "files.h"
#include "images.h"

namespace qv::tool {
namespace {

constexpr test::Layout narrow{8000, 160, 24}, wide{16000, 320, 32};

class Process : public InFolder {
protected:
  Process() {
    put_wav("mic.wav", 8000, call.mic);
    put_wav("ref.wav", 8000, call.far);
    put_image("busy.bin", test::busy_image(8000));
    put_image("wide.bin", test::busy_image(16000));
  }
  void put_image(const char *name, const config::Image &image) const {
    std::string bytes;
    for (const int16_t word : image)
      bytes.append({char(word & 255), char(word >> 8)});
    put(name, bytes);
  }
  CommandResult process(const std::string &words) const { return run_command(folder, "process " + words); }
  Samples samples(const char *name) const { return read_audio({.path = at(name)}).audio.samples; }

  const test::Call call{narrow, 50};
};

TEST_F(Process, each_direction_writes_what_the_library_gives) {
  const tool::Setup defaults = make_setup(std::nullopt, 8000, 20);
  const tool::Setup busy{test::busy_image(8000), "", 8000, 128};
  const struct {
    const char *words;
    tool::Run run;
  } cases[] = {
      {"--mic mic.wav --ref ref.wav --out out.wav", run_tx(defaults, call.mic, call.far)},
      {"--far ref.wav --played played.wav", run_rx(defaults, call.far)},
      {"--far ref.wav --mic mic.wav --out out.wav --played played.wav --para busy.bin --frame-ms 16 --compensate",
       run_both(busy, call.far, call.mic, {.compensate = true, .progress = {}})},
  };
  for (const auto &[words, run] : cases) {
    const CommandResult result = process(words);
    EXPECT_EQ(result.status, 0) << words << ": " << result.err;
    EXPECT_EQ(result.err, "") << words;
    EXPECT_EQ(fs::exists(at("out.wav")) ? samples("out.wav") : Samples(), run.sent) << words;
    EXPECT_EQ(fs::exists(at("played.wav")) ? samples("played.wav") : Samples(), run.played) << words;
    fs::remove(at("out.wav"));
    fs::remove(at("played.wav"));
  }
}

TEST_F(Process, a_stereo_file_is_microphone_and_reference) {
  Samples both;
  for (size_t i = 0; i < call.mic.size(); ++i)
    both.insert(both.end(), {call.mic[i], call.far[i]});
  put_audio("call.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 8000, 2, both);
  ASSERT_EQ(process("--stereo call.flac --out out.wav").status, 0);
  EXPECT_EQ(samples("out.wav"), run_tx(make_setup(std::nullopt, 8000, 20), call.mic, call.far).sent);
}

TEST_F(Process, the_summary_says_what_was_in_effect) {
  put_wav("long.wav", 48000, Samples(6 * 8000 + 480, 32767));
  const CommandResult result =
      process("--mic long.wav --ref ref.wav --out out.wav --trace t.csv --para wide.bin --json");
  ASSERT_EQ(result.status, 0) << result.err;
  const auto summary = nlohmann::json::parse(result.out);
  EXPECT_EQ(summary["rate_hz"], 16000);
  EXPECT_EQ(summary["parameters"], "wide.bin");
  EXPECT_EQ(summary["frames"], 51); // 1.01 s
  EXPECT_GT(summary["times_real_time"], 0.0);
  EXPECT_EQ(summary["transmit"]["latency_samples"], 320 + 128);
  EXPECT_EQ(summary["transmit"]["stages"]["ratio_suppressor"], true);
  EXPECT_EQ(summary["transmit"]["stages"]["coherence_suppressor"], false); // the other takes precedence
  EXPECT_FALSE(summary.contains("receive"));
  EXPECT_GT(summary["inputs"][0]["clipped_samples"], 10000);
  EXPECT_NEAR(summary["inputs"][0]["level_dbfs"], 0.0, 0.1);
  const std::string notes = summary["notes"].dump();
  for (const char *note :
       {"long.wav: mic converted from 48000 to 16000 Hz", "ref.wav: ref converted from 8000 to 16000",
        "ref.wav: ref ends 160 samples (0.010 s) before long.wav; continued with silence"})
    EXPECT_NE(notes.find(note), std::string::npos) << notes;
  const std::string csv = bytes_of(at("t.csv"));
  EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 1 + 51);
  EXPECT_NE(csv.find("\n1.000,51,"), std::string::npos);
}

TEST_F(Process, bad_use_is_refused_and_leaves_everything_as_it_was) {
  put("short.bin", std::string(999, '\0'));
  put("foreign.bin", std::string(1000, '\0'));
  put_wav("mono.wav", 8000, {1, 2, 3});
  const std::pair<const char *, const char *> cases[] = {
      {"", "no input: give --mic and --ref"},
      {"--mic mic.wav --out o.wav", "--mic needs the echo reference"},
      {"--mic mic.wav --ref ref.wav", "give --out"},
      {"--far ref.wav", "give --played"},
      {"--far ref.wav --out o.wav", "--out has no effect without --mic"},
      {"--far ref.wav --mic mic.wav --ref ref.wav --out o.wav", "--ref excludes --far"},
      {"--mic mic.wav --ref ref.wav --out o.wav --played p.wav", "--played requires --far"},
      {"--stereo mono.wav --out o.wav", "mono.wav: --stereo takes a file of 2 channels"},
      {"--stereo mono.wav --mic mic.wav --out o.wav", "--mic excludes --stereo"},
      {"--far ref.wav --played p.wav --mic-channel 1", "--mic-channel requires --mic"},
      {"--far ref.wav --played p.wav --raw-rate 8000", "--raw-rate requires --raw"},
      {"--far ref.wav --played p.wav --raw s16le", "--raw requires --raw-rate"},
      {"--far ref.wav --played p.wav --rate 44100", "--rate: 44100 not in {8000,16000}"},
      {"--far ref.wav --played p.wav --frame-ms 10", "--frame-ms: 10 not in {16,20}"},
      {"--far ref.wav --played p.wav --para none.bin", "none.bin: parameter file cannot be read"},
      {"--far ref.wav --played p.wav --para short.bin", "short.bin: parameter file holds 999 bytes; 1000"},
      {"--far ref.wav --played p.wav --para foreign.bin", "foreign.bin: not a parameter file: word 9 is 0; 1111"},
      {"--far ref.wav --played p.wav --para wide.bin --rate 8000", "wide.bin: parameter file is for 16000 Hz"},
      {"--far ref.wav --played busy.bin --para busy.bin", "busy.bin: is the input"},
      {"--far ref.wav --played ./ref.wav", "./ref.wav: is the input ref.wav"},
      {"--far ref.wav --played p.wav --trace p.wav", "p.wav: named for two results"},
      {"--far ref.wav --played p.wav extra", "not expected: extra"},
  };
  const auto before = names();
  for (const auto &[words, reason] : cases) {
    const CommandResult result = process(words);
    EXPECT_EQ(result.status, 2) << words;
    EXPECT_EQ(result.out, "") << words;
    EXPECT_EQ(result.err.find("qvvoice: "), 0u) << words;
    EXPECT_NE(result.err.find(reason), std::string::npos) << words << ": " << result.err;
    EXPECT_EQ(names(), before) << words;
  }
  EXPECT_EQ(samples("ref.wav"), call.far);
}

TEST_F(Process, full_disk_is_an_error_and_leaves_no_half_file) {
  const auto before = names();
  const std::string line = "sh -c 'ulimit -f 8; exec " QVVOICE_COMMAND " process --far ref.wav --played p.wav'";
  EXPECT_NE(std::system(("cd " + folder.string() + " && " + line + " >/dev/null 2>&1").c_str()), 0);
  EXPECT_EQ(names(), before);
}

TEST(Command, help_shows_an_example_and_an_unknown_verb_is_named) {
  const fs::path here = testing::TempDir();
  const CommandResult help = run_command(here, "process --help");
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("qvvoice process --mic mic.wav --ref"), std::string::npos);
  const CommandResult unknown = run_command(here, "procces");
  EXPECT_EQ(unknown.status, 2);
  EXPECT_NE(unknown.err.find("procces"), std::string::npos);
}

} // namespace
} // namespace qv::tool
