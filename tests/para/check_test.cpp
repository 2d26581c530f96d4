#include <gtest/gtest.h>

#include "para/check.h"
#include "para/para_file.h"
#include "para/presets.h"
#include "para/text_reader.h"

namespace qv::tool::para {
namespace {

constexpr Severity error = Severity::error, warning = Severity::warning;

struct Case {
  const char *text; ///< behind "rate = 16000\n"; as it is, it must give the finding
  Severity severity;
  const char *key;
  const char *consequence;     ///< part of the message
  const char *right = nullptr; ///< the nearest text that no longer gives it
};

const Case cases[] = {
    {"[aec]\nenable = 2", error, "aec.enable", "it is off", "[aec]\nenable = 1"},
    {"[tx.anr]\nenable = 2", error, "tx.anr.enable", "it is on", "[tx.anr]\nenable = 0"},
    {"[tx.eq]\nhalf_taps = 130", error, "tx.eq.half_taps", "cut to 129", "[tx.eq]\nhalf_taps = 129"},
    {"[tx.eq]\nhalf_taps = 0", error, "tx.eq.half_taps", "unchanged", "[tx.eq]\nhalf_taps = 1"},
    {"[aec]\necho_delay = 4097", error, "aec.echo_delay", "history ends", "[aec]\necho_delay = 4096"},
    {"[tx.agc]\nramp_mid = -1", error, "tx.agc.ramp_mid", "counts as 0"},
    {"[tx.agc]\nslope_mid = 4.5", error, "tx.agc.slope_mid", "outside 0 .. 4 dB/dB"},
    {"[raw]\n9 = 1110", error, "raw.9", "converts nothing"},
    // Gain control
    {"[rx.agc]\nknee_low_db = -12\nknee_high_db = -12", error, "rx.agc.knee_low_db", "pumps",
     "[rx.agc]\nknee_low_db = -12.5\nknee_high_db = -12"},
    {"[tx.agc]\nslope_mid = 0.3", warning, "tx.agc.slope_mid", "pumps",
     "[tx.agc]\nslope_mid = 0.3\nramp_mid = \"500 ms\""},
    {"[tx.agc]\nslope_high = 1.2", warning, "tx.agc.slope_high", "clips", "[tx.agc]\nslope_high = 1"},
    {"[tx.agc]\nslope_low = 3.5", warning, "tx.agc.slope_low", "gate"},
    {"[tx.agc]\nramp_high = 0", warning, "tx.agc.ramp_high", "clicks", "[tx.agc]\nramp_high = 0\nslope_high = 1"},
    {"[tx.agc]\nknee_gain_db = 6", warning, "tx.agc.knee_gain_db", "clip", "[tx.agc]\nknee_gain_db = 3"},
    {"[tx.agc]\nslope_low = 0.2\nslope_mid = 0.8", warning, "tx.agc.slope_low", "swells",
     "[tx.agc]\nslope_low = 1\nslope_mid = 0.8"},
    // Equaliser
    {"[tx.eq]\nenable = true", error, "tx.eq.coef", "silent", "[tx.eq]\nenable = true\ncoef = [0.9]"},
    {"[tx.eq]\nenable = true\ncoef = [0.4, 0.8]", warning, "tx.eq.coef", "clip",
     "[tx.eq]\nenable = true\ncoef = [0.1, 0.8]"},
    {"[tx.eq]\nenable = true\ncoef = [0.5, 0.1]", warning, "tx.eq.coef", "smears",
     "[tx.eq]\nenable = true\ncoef = [0.1, 0.5]"},
    {"[tx.eq]\nenable = true\ncoef = [0.05]", warning, "tx.eq.coef", "hardly heard"},
    {"[tx.eq]\ncoef = [0.5]", warning, "tx.eq.enable", "unchanged", "[tx.eq]\nenable = true\ncoef = [0.5]"},
    // Noise
    {"[rx.anr]\nnoise_scale = 0", warning, "rx.anr.noise_scale", "removes no noise",
     "[rx.anr]\nnoise_scale = 0\nenable = false"},
    {"[tx.cng]\nnoise_gain = 0", warning, "tx.cng.noise_level", "dead"},
    {"[tx.cng]\nnoise_level = 20\nnoise_gain = 20", warning, "tx.cng.noise_gain", "9 dB louder",
     "[tx.cng]\nnoise_level = 14\nnoise_gain = 20"},
    {"[aec]\nenable = false", warning, "tx.cng.enable", "every frame",
     "[aec]\nenable = false\n[tx.cng]\nenable = false"},
    {"[tx.anr]\nenable = false", warning, "tx.cng.enable", "dead"},
    // Echo
    {"[aec]\ntrack_delay = false", warning, "aec.echo_delay", "two frames",
     "[aec]\ntrack_delay = false\necho_delay = 800"},
    {"[aec.suppressor]\ncoherence = false\necho_ratio = false", warning, "aec.suppressor.coherence",
     "heard at the far end", "[aec.suppressor]\ncoherence = true\necho_ratio = false"},
    {"[aec.suppressor]\ncoherence = true\necho_ratio = true", warning, "aec.suppressor.coherence", "diverged"},
    {"[aec.suppressor]\nodds_divisor = [1, 1, 1, 0, 1, 1, 1, 1]", warning, "aec.suppressor.odds_divisor",
     "group 4 (903-1365 Hz)"},
    {"[aec.suppressor]\nodds_divisor = [1, 1, 1, 1, 1, 1, 1, 11]", warning, "aec.suppressor.odds_divisor",
     "near-end speech", "[aec.suppressor]\nodds_divisor = [1, 1, 1, 1, 1, 1, 1, 10]"},
    {"[aec.double_talk]\nresidual_low = [9, 1, 1, 1, 1, 1, 1, 1]\nresidual_high = [8, 8, 8, 8, 8, 8, 8, 8]", error,
     "aec.double_talk.residual_low", "chopped"},
    {"[aec.double_talk]\nratio_high = [0, 0.5, 0.5, 0.5, 0.5, 0.5, 0.5, 0.5]\nratio_low = [0.1, 0, 0, 0, 0, 0, 0, 0]",
     error, "aec.double_talk.ratio_low", "chopped"},
    {"[aec.double_talk]\ndrop_factor = [1, 1, 1, 1, 1, 1, 1, 2]", warning, "aec.double_talk.drop_factor", "is cut",
     "[aec.double_talk]\ndrop_factor = [1, 1, 1, 1, 1, 1, 1, 1]"},
    {"[aec.double_talk]\ncount_from = 20\ncount_to = 20", error, "aec.double_talk.count_from", "muted",
     "[aec.double_talk]\ncount_from = 15\ncount_to = 20"},
    {"[aec.double_talk]\ncount_from = 10\ncount_to = 12\ncount_min = 3", error, "aec.double_talk.count_min", "muted"},
    {"[aec.double_talk]\ncount_from = 10\ncount_to = 14\ncount_min = 3", warning, "aec.double_talk.count_min",
     "muted now", "[aec.double_talk]\ncount_from = 10\ncount_to = 14\ncount_min = 2"},
    {"[aec.double_talk]\ncount_min = 0", error, "aec.double_talk.count_min", "never muted"},
    {"[aec.double_talk]\nsingle_talk_hang = 2", warning, "aec.double_talk.single_talk_hang", "chopped",
     "[aec.double_talk]\nsingle_talk_hang = 3"},
    {"[aec.double_talk]\npresence_min = 0.4\npresence_max = 0.3", error, "aec.double_talk.presence_min",
     "comes and goes"},
    {"[aec.double_talk]\npresence_start = 0.5\npresence_max = 0.3", warning, "aec.double_talk.presence_start",
     "unlike"},
    {"[aec.double_talk]\npresence_max = 0.95", warning, "aec.double_talk.presence_max", "does not get through"},
    {"[aec.double_talk]\npresence_step = 0", warning, "aec.double_talk.presence_step", "settle"},
    {"[aec.double_talk]\nfar_active_peak = 0", warning, "aec.double_talk.far_active_peak", "all the time"},
    {"[aec.double_talk]\nfar_active_peak = 5000", warning, "aec.double_talk.far_active_peak", "unsuppressed"},
};

/// The finding with this key and part of the message, or null.
const Finding *find(const Findings &findings, const Case &wanted) {
  for (const Finding &finding : findings)
    if (finding.key == wanted.key && finding.message.find(wanted.consequence) != std::string::npos)
      return &finding;
  return nullptr;
}

Findings check_text(const std::string &text) {
  const ReadText read = read_text("rate = 16000\n" + text, {});
  EXPECT_FALSE(has_errors(read.log.findings())) << text;
  return check(read.image);
}

// Each rule speaks, about the right key and with its consequence, and falls silent where it should.
TEST(Check, each_wrong_value_has_its_consequence) {
  for (const Case &wrong : cases) {
    const Findings findings = check_text(wrong.text);
    const Finding *finding = find(findings, wrong);
    ASSERT_NE(finding, nullptr) << wrong.text;
    EXPECT_EQ(finding->severity, wrong.severity) << wrong.text;
    if (wrong.right) {
      EXPECT_EQ(find(check_text(wrong.right), wrong), nullptr) << wrong.right;
    }
  }
}

TEST(Check, presets_and_defaults_have_no_findings) {
  for (const Preset &preset : presets())
    for (const Finding &finding : check_file(load(std::string(preset.name))))
      ADD_FAILURE() << to_string(finding, std::string(preset.name));
  EXPECT_TRUE(check(config::default_image(8000)).empty());
}

TEST(Check, names_the_line_the_rate_and_what_the_other_rate_lacks) {
  ParaFile file{"my.toml", {}, false, {}};
  ReadText read = read_text("rate = 8000\n\n[aec.double_talk]\ncount_to = 30\n", {});
  file.image = read.image;
  file.log = read.log;
  const Findings findings = check_file(file, 16000);
  ASSERT_EQ(findings.size(), 2u);
  EXPECT_EQ(to_string(findings[0], "my.toml").substr(0, 47), "my.toml:4: warning: aec.double_talk.count_to: 3");
  EXPECT_EQ(to_string(findings[1], "my.toml"),
            "my.toml:1: error: rate: the file is for 8000 Hz, not 16000 Hz; the library refuses it with status 2");
  EXPECT_EQ(check(Image{}).at(0).key, "rate");
}

} // namespace
} // namespace qv::tool::para
