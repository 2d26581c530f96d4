// What is said of a parameter file, what is drawn of it, and the pages on its fields.

#include <cmath>

#include "inspect/check.h"
#include "inspect/diff.h"
#include "inspect/level_curve.h"
#include "inspect/reference.h"
#include "para/presets.h"
#include "para/text_reader.h"
#include "process/files.h"
#include "qvvoice/post/agc.h"

namespace qv::tool::inspect {
namespace {

using namespace para;

/// In the section of a key: what must give a finding about it, and the nearest text that no longer does.
const struct {
  Severity severity;
  std::string section, key;
  const char *wrong, *right;
} rules[] = {
    {Severity::error, "tx.eq", "half_taps", "half_taps = 130", "half_taps = 129"},
    {Severity::error, "tx.eq", "half_taps", "half_taps = 0", "half_taps = 1"},
    {Severity::error, "tx.eq", "coef", "enable = true", "enable = true\ncoef = [0.9]"},
    {Severity::error, "aec", "echo_delay", "echo_delay = 4097", "echo_delay = 4096"},
    {Severity::error, "rx.agc", "knee_low_db", "knee_low_db = -12\nknee_high_db = -12", "knee_low_db = -12.5"},
    {Severity::warning, "tx.agc", "slope_high", "slope_high = 1.2", "slope_high = 1"},
    {Severity::error, "aec.double_talk", "count_min", "count_from = 10\ncount_to = 12\ncount_min = 3", "count_min = 1"},
    {Severity::warning, "aec.double_talk", "single_talk_hang", "single_talk_hang = 2", "single_talk_hang = 3"},
    {Severity::warning, "echo_control", "enable", "enable = true\n[aec]\nenable = false", "enable = true"},
    {Severity::note, "echo_control", "enable",
     "enable = true\n[aec.double_talk]\nresidual_low = [11, 11, 11, 11, 11, 11, 11, 12]",
     "enable = true\n[aec.double_talk]\nresidual_low = [11, 11, 11, 11, 11, 11, 11, 11]"},
    {Severity::warning, "echo_control", "tail_ms", "enable = true\ntail_ms = 149", "enable = true\ntail_ms = 150"},
    {Severity::error, "echo_control", "tail_ms", "enable = true\ntail_ms = 321", "enable = true\ntail_ms = 320"},
    {Severity::warning, "echo_control", "depth_db", "enable = true\ndepth_db = 61", "enable = true\ndepth_db = 60"},
    {Severity::warning, "echo_control", "background", "enable = true\nbackground = 0", "background = 0"},
    {Severity::warning, "tx.cng", "enable", "enable = true\n[echo_control]\nenable = true", "enable = true"},
    {Severity::warning, "aec.suppressor", "coherence", "coherence = false",
     "coherence = false\n[echo_control]\nenable = true"},
    {Severity::error, "aec.double_talk", "count_min", "count_min = 0", "count_min = 0\n[echo_control]\nenable = true"},
    {Severity::warning, "aec", "echo_delay", "track_delay = false",
     "track_delay = false\n[echo_control]\nenable = true"},
};

TEST(Check, each_rule_speaks_from_its_boundary_on) {
  for (const auto &[severity, section, key, wrong, right] : rules)
    for (const char *text : {wrong, right}) {
      const Findings all = check(read_text("rate = 16000\n[" + section + "]\n" + text, {}).image);
      const auto same = [&](const Finding &f) { return f.severity == severity && f.key == section + "." + key; };
      EXPECT_EQ(std::any_of(all.begin(), all.end(), same), text == wrong) << text;
    }
  for (const Preset &preset : presets())
    EXPECT_TRUE(check_file(load(std::string(preset.name))).empty()) << preset.name;
}

// A switch that brings words with it is one difference, and those that nobody read before are none.
TEST(Diff, speaks_of_a_section_that_comes_or_goes_by_its_switch) {
  const auto keys = [](const Image &a, const Image &b) {
    std::vector<std::string> found;
    for (const Difference &difference : diff(a, b))
      found.push_back(difference.key);
    return found;
  };
  const std::string on = "rate = 16000\n[echo_control]\nenable = true\n";
  const Image without = config::default_image(16000), with = read_text(on, {}).image;
  const Image tuned = read_text(on + "care = 0.25", {}).image;
  using Keys = std::vector<std::string>;
  EXPECT_EQ(keys(without, with), Keys{"echo_control.enable"});
  EXPECT_EQ(keys(tuned, without), (Keys{"echo_control.enable", "echo_control.care"}));
  EXPECT_EQ(keys(with, tuned), Keys{"echo_control.care"});
  EXPECT_EQ(keys(without, without), Keys{});
  Image stray = without;
  stray[452] = 7;
  EXPECT_EQ(keys(stray, without), Keys{"raw.452"});
  EXPECT_EQ(keys(stray, with), (Keys{"echo_control.enable", "raw.452"}));
}

// The drawn curve is that of the library: its gain control measured at points.
TEST(Plots, level_curve_is_what_the_library_does) {
  const Image image =
      read_text("rate = 16000\n[tx.agc]\nknee_gain_db = 3\nslope_low = 2\nslope_mid = 0.75\n", {}).image;
  ASSERT_EQ(VOICE_SetPara_1(image.data(), 16000, 320), 0);
  const LevelCurve curve(Values(image), "tx.agc");
  for (const int16_t amplitude : {5, 33, 1000, 8000, 20000}) {
    AgcState agc;
    AGC_Init(&g_stVoicePara.stAgcTx, &agc);
    const std::vector<int16_t> in(320, amplitude);
    std::vector<int16_t> out(320);
    for (int frame = 0; frame < 10; ++frame)
      AGC_Process(in.data(), out.data(), &agc);
    const double level = AGC_Power2Db(float(amplitude) * float(amplitude));
    EXPECT_NEAR(20 * std::log10(agc.fGainPrev), curve.gain(level), 0.01) << amplitude;
  }
}

TEST(Reference, documents_are_current) {
  const fs::path docs = QVVOICE_DOCS;
  EXPECT_TRUE(bytes_of(docs / "parameters.md") == reference_markdown())
      << "renew with: qvvoice para fields --form markdown --out docs/parameters.md";
  EXPECT_TRUE(bytes_of(docs / "parameters.schema.json") == text_schema().dump(2) + "\n")
      << "renew with: qvvoice para fields --form schema --out docs/parameters.schema.json";
}

} // namespace
} // namespace qv::tool::inspect
