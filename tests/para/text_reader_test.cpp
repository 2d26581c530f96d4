#include <gtest/gtest.h>

#include "folder.h"
#include "para/fir_design.h"
#include "para/keys.h"
#include "para/para_file.h"
#include "para/presets.h"
#include "para/text_reader.h"
#include "para/text_writer.h"
#include "support/error.h"

namespace qv::tool::para {
namespace {

struct Mistake {
  const char *text; ///< behind "rate = 16000\n", which is line 1
  Severity severity;
  int line;
  const char *key;
  const char *found; ///< part of the message that names what is there
  const char *right; ///< part that names what would be right
};

constexpr Severity error = Severity::error, warning = Severity::warning;

const Mistake mistakes[] = {
    {"[aec\nenable = true", error, 2, "", "not TOML", ""},
    {"[aec]\nenable = true\nenable = true", error, 4, "", "not TOML", ""},
    {"[agc]\nenable = true", error, 2, "agc", "no such section", "tx.agc"},
    {"[tx.agc]\nknee_low = -50", error, 3, "tx.agc.knee_low", "no such key", "tx.agc.knee_low_db"},
    {"[tx.agc]\nfKneeLowDb = -50", error, 3, "tx.agc.fKneeLowDb", "no such key", "tx.agc.knee_low_db"},
    {"[tx.cng]\nenabl = true", error, 3, "tx.cng.enabl", "no such key", "tx.cng.enable"},
    {"[tx.agc]\nramp_midd = 1", error, 3, "tx.agc.ramp_midd", "no such key", "tx.agc.ramp_mid"},
    {"knee_low_db = -50", error, 2, "knee_low_db", "no such key", "tx.agc.knee_low_db"},
    {"[aec]\nnoise_scale = 1", error, 3, "aec.noise_scale", "no such key", "tx.anr.noise_scale"},
    {"aec = 1", error, 2, "aec", "1", "[aec]"},
    {"[tx.anr]\nenable = \"yes\"", error, 3, "tx.anr.enable", "\"yes\", a string", "true or false"},
    {"[tx.agc]\nknee_low_db = true", error, 3, "tx.agc.knee_low_db", "true, a boolean", "a number (dB)"},
    {"[tx.agc]\nramp_low = \"20 s\"", error, 3, "tx.agc.ramp_low", "\"20 s\"", "\"20 ms\""},
    {"[tx.agc]\nknee_low_db = [1, 2]", error, 3, "tx.agc.knee_low_db", "an array of 2", "a number"},
    {"[aec.double_talk]\nratio_low = 0.1", error, 3, "aec.double_talk.ratio_low", "0.1", "an array of 8"},
    {"[aec.double_talk]\nratio_low = [0.1]", error, 3, "aec.double_talk.ratio_low", "an array of 1", "an array of 8"},
    {"[tx.agc]\nknee_low_db = -2000", error, 3, "tx.agc.knee_low_db", "-2000", "-1024 .. 1023.97"},
    {"[tx.agc]\nknee_low_db = nan", error, 3, "tx.agc.knee_low_db", "nan", "-1024 .. 1023.97"},
    {"[aec]\necho_delay = 99999999999", error, 3, "aec.echo_delay", "99999999999", "-32768 .. 32767"},
    {"[tx.agc]\nknee_low_db = -20.01", warning, 3, "tx.agc.knee_low_db", "-20.01", "stored as -20: "},
    {"[aec]\necho_delay = 3.5", warning, 3, "aec.echo_delay", "3.5", "stored as 4"},
    {"frame_ms = 10", error, 2, "frame_ms", "10", "16 or 20"},
    {"base = \"balanced-16-20ms\"", error, 2, "base", "balanced-16-20ms", "\"balanced-16k-20ms\""},
    {"base = \"balanced-8k-20ms\"", error, 2, "base", "8000 Hz", "16000 Hz"},
    {"[raw]\n500 = 1", error, 3, "raw.500", "no such word", "0 .. 499"},
    {"[raw]\n1 = 40000", error, 3, "raw.1", "40000", "-32768 .. 32767"},
    {"[raw]\n123 = 1", error, 3, "raw.123", "a key of its own", "tx.agc.knee_low_db"},
    {"[tx.eq]\ncoef = [1.0]", error, 3, "tx.eq.coef", "1", "-1 .. 0.99997"},
    {"[tx.eq]\ncoef = [0.5]\npoints = [[1000, 0]]", error, 4, "tx.eq.points", "more than one", "coef"},
    {"[tx.eq]\npoints = [[1000, 0], [500, -3]]", error, 3, "tx.eq.points", "500 Hz", "above the one before"},
    {"[tx.eq]\npoints = [[9000, 0]]", error, 3, "tx.eq.points", "9000 Hz", "up to 8000"},
    {"[tx.eq]\npoints = [1000, 0]", error, 3, "tx.eq.points", "1000", "[Hz, dB]"},
    {"[tx.eq]\npoints = []", error, 3, "tx.eq.points", "an array of 0", "[[Hz, dB], ...]"},
    {"[tx.eq]\npoints = [[1000, 100]]", error, 3, "tx.eq.points", "100 dB", "-90 .. 90"},
    {"[tx.eq]\npoints = [[1000, 6]]", error, 3, "tx.eq.points", "1.99", "lower all gains by 6.0 dB"},
    {"[tx.eq]\npoints = [[1000, 0], [1100, -40], [1200, 0]]\ntaps = 17", warning, 3, "tx.eq.points", "at 1100 Hz",
     "more taps"},
    {"[tx.eq]\npoints = [[1000, 0]]\ntaps = 128", error, 4, "tx.eq.taps", "128", "odd number, 1 .. 257"},
    {"[tx.eq]\ntaps = 129", error, 3, "tx.eq.taps", "belongs to points", ""},
    {"[tx.eq]\nhalf_taps = 3\npoints = [[1000, 0]]", error, 3, "tx.eq.half_taps", "follows from points", ""},
    {"[tx.eq]\nfile = \"none.txt\"", error, 3, "tx.eq.file", "none.txt cannot be opened", ""},
    {"[tx.eq]\nfile = \"even.txt\"", error, 3, "tx.eq.file", "2 coefficients", "odd number"},
    {"[tx.eq]\nfile = \"skew.txt\"", error, 3, "tx.eq.file", "1 and 3 differ", "symmetric"},
    {"[tx.eq]\nfile = \"words.txt\"", error, 3, "tx.eq.file", "words.txt:2: \"half\"", "number"},
};

TEST(TextReader, every_mistake_has_its_message) {
  const Folder folder;
  folder.file("even.txt", "0.5 0.5");
  folder.file("skew.txt", "0.1\n0.5\n0.2\n");
  folder.file("words.txt", "0.5 # a\nhalf\n");
  for (const Mistake &mistake : mistakes) {
    const std::string text = std::string("rate = 16000\n") + mistake.text;
    const Findings findings = read_text(text, folder.path()).log.findings();
    ASSERT_EQ(findings.size(), 1u) << text;
    const Finding &finding = findings.front();
    EXPECT_EQ(finding.severity, mistake.severity) << text;
    EXPECT_EQ(finding.line, mistake.line) << text;
    EXPECT_EQ(finding.key, mistake.key) << text;
    EXPECT_NE(finding.message.find(mistake.found), std::string::npos) << text << "\n" << finding.message;
    EXPECT_NE(finding.message.find(mistake.right), std::string::npos) << text << "\n" << finding.message;
  }
  EXPECT_EQ(read_text("[tx.agc]\nenable = true", {}).log.findings().at(0).message.substr(0, 7), "neither");
}

// What a file is refused for before its values are looked at.
TEST(ParaFile, wrong_files_are_refused_with_what_would_be_right) {
  const Folder folder;
  const std::string packed = packed_bytes(config::default_image(16000));
  std::string swapped = packed;
  for (size_t i = 0; i < swapped.size(); i += 2)
    std::swap(swapped[i], swapped[i + 1]);
  const std::pair<std::string, const char *> files[] = {
      {folder.file("short.para", packed.substr(0, 998)), "holds 998 bytes; 1000"},
      {folder.file("swapped.para", swapped), "word 0 is 16000 in big-endian order"},
      {folder.file("empty.para", ""), "is empty"},
      {folder.path(), "is a folder"},
      {folder.file("packed.toml", "5 packed?").append("x"), "neither a file nor a preset"},
      {"balanced-16k-20m", "did you mean \"balanced-16k-20ms\""},
      {folder.file("text.para", "rate = 16000\n[tx.agc]\nknee = 1\n"), "text.para:3: error: tx.agc.knee: no such key"},
      {folder.file("note.txt", "Hello there\n"), "note.txt:1: error: not TOML"},
  };
  for (const auto &[path, message] : files)
    try {
      load_valid(path);
      ADD_FAILURE() << path << " was taken";
    } catch (const InputError &refused) {
      EXPECT_NE(std::string(refused.what()).find(message), std::string::npos) << refused.what();
    }
  const ParaFile longer = load_valid(folder.file("longer.para", packed + "x"));
  EXPECT_EQ(longer.image, config::default_image(16000));
  EXPECT_EQ(longer.log.findings().size(), 1u) << "the byte that nothing reads";
}

TEST(TextReader, takes_what_is_missing_from_the_base) {
  const ReadText read =
      read_text("base = \"balanced-8k-16ms\"\n[tx.agc]\nramp_low = \"20 ms\"\nslope_mid = 0.75\n", {});
  EXPECT_TRUE(read.log.findings().empty());
  EXPECT_EQ(read.frame_ms, 16);
  const Values values(read.image), base(load_valid("balanced-8k-16ms").image);
  EXPECT_EQ(values("tx.agc.ramp_low"), 160);
  EXPECT_EQ(values("tx.agc.slope_mid"), 0.75);
  for (const Field &field : config::fields)
    if (field.section != "tx.agc") {
      EXPECT_EQ(values(path_of(field)), Values(load_valid("balanced-8k-16ms").image)(path_of(field))) << path_of(field);
    }
}

TEST(TextReader, an_equaliser_comes_as_coefficients_points_or_file) {
  const Folder folder;
  folder.file("whole.txt", "# designed elsewhere\n0.125, 0.25\n0.5 0.25 0.125");
  const auto half = [&](const char *source) {
    const ReadText read = read_text(std::string("rate = 8000\n[rx.eq]\n") + source, folder.path());
    EXPECT_TRUE(read.log.findings().empty()) << source;
    return Values(read.image).half_response("rx.eq");
  };
  const std::vector<double> three = {0.125, 0.25, 0.5};
  EXPECT_EQ(half("coef = [0.125, 0.25, 0.5]"), three);
  EXPECT_EQ(half("file = \"whole.txt\""), three);
  const auto designed = half("points = [[1000, 0], [2000, -6]]\ntaps = 65");
  ASSERT_EQ(designed.size(), 33u);
  EXPECT_NEAR(response_db(designed, 3000, 8000), -6, 0.1);
}

TEST(TextReader, a_new_text_is_its_preset_with_every_key_to_hand) {
  for (const Preset &preset : presets()) {
    const std::string text = write_new(std::string(preset.name));
    const Image image = load_valid(std::string(preset.name)).image;
    EXPECT_EQ(read_text(text, {}).image, image);
    // All keys taken into use, it still says the same.
    std::string all;
    for (size_t start = 0; start < text.size(); start = text.find('\n', start) + 1)
      if (text.compare(start, 2, "# ") == 0 && text.find(" = ", start) < text.find('\n', start) &&
          text.compare(start, 9, "# points ") && text.compare(start, 7, "# taps ") && text.compare(start, 7, "# file "))
        all += text.substr(start + 2, text.find('\n', start) - start - 1);
      else
        all += text.substr(start, text.find('\n', start) - start + 1);
    const ReadText read = read_text(all, {});
    EXPECT_TRUE(read.log.findings().empty()) << all;
    EXPECT_EQ(read.image, image);
    for (const Field &field : config::fields)
      EXPECT_GT(read.log.line_of(path_of(field)), 0) << path_of(field);
  }
}

} // namespace
} // namespace qv::tool::para
