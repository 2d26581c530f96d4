// Parameter files as text and as words, and the verbs.

#include <cmath>
#include <random>
#include <regex>

#include "para/fir_design.h"
#include "para/keys.h"
#include "para/para_file.h"
#include "para/presets.h"
#include "para/text_reader.h"
#include "para/text_writer.h"
#include "process/files.h"

namespace qv::tool::para {
namespace {

struct Mistake {
  const char *text; ///< behind "rate = 16000\n", which is line 1
  int line;
  const char *key;
  const char *found; ///< part of the message that names what is there
  const char *right; ///< part that names what would be right
  Severity severity = Severity::error;
};

const Mistake mistakes[] = {
    {"[aec\nenable = true", 2, "", "not TOML", ""},
    {"[agc]\nenable = true", 2, "agc", "no such section", "tx.agc"},
    {"[tx.agc]\nknee_low = -50", 3, "tx.agc.knee_low", "no such key", "tx.agc.knee_low_db"},
    {"knee_low_db = -50", 2, "knee_low_db", "no such key", "tx.agc.knee_low_db"},
    {"[tx.anr]\nenable = \"yes\"", 3, "tx.anr.enable", "\"yes\", a string", "true or false"},
    {"[tx.agc]\nknee_low_db = true", 3, "tx.agc.knee_low_db", "true, a boolean", "a number (dB)"},
    {"[tx.agc]\nramp_low = \"20 s\"", 3, "tx.agc.ramp_low", "\"20 s\"", "\"20 ms\""},
    {"[tx.agc]\nknee_low_db = nan", 3, "tx.agc.knee_low_db", "nan", "-1024 .. 1023.97"},
    {"[tx.agc]\nknee_low_db = -20.01", 3, "tx.agc.knee_low_db", "-20.01", "stored as -20: ", Severity::warning},
    {"frame_ms = 10", 2, "frame_ms", "10", "16 or 20"},
    {"base = \"balanced-16-20ms\"", 2, "base", "balanced-16-20ms", "\"balanced-16k-20ms\""},
    {"[raw]\n500 = 1", 3, "raw.500", "no such word", "0 .. 499"},
    {"[raw]\n123 = 1", 3, "raw.123", "a key of its own", "tx.agc.knee_low_db"},
    {"[echo_control]\ntail_ms = 200", 3, "echo_control.tail_ms", "200 is not stored", "enable = true",
     Severity::warning},
    {"[echo_control]\nenable = true\n[raw]\n451 = 1", 5, "raw.451", "a key of its own", "echo_control.enable"},
    {"[echo_control]\nenable = true\n[raw]\n452 = 1", 5, "raw.452", "a key of its own", "echo_control.tail_ms"},
    {"[tx.eq]\ncoef = [0.5]\npoints = [[1000, 0]]", 4, "tx.eq.points", "more than one", "coef"},
    {"[tx.eq]\npoints = [[1000, 0], [500, -3]]", 3, "tx.eq.points", "500 Hz", "above the one before"},
    {"[tx.eq]\npoints = [[1000, 6]]", 3, "tx.eq.points", "1.99", "lower all gains by 6.0 dB"},
    {"[tx.eq]\npoints = [[1000, 0]]\ntaps = 128", 4, "tx.eq.taps", "128", "odd number, 1 .. 257"},
    {"[tx.eq]\nfile = \"even.txt\"", 3, "tx.eq.file", "2 coefficients", "odd number"},
    {"[tx.eq]\nfile = \"skew.txt\"", 3, "tx.eq.file", "1 and 3 differ", "symmetric"},
    {"[tx.eq]\nfile = \"words.txt\"", 3, "tx.eq.file", "words.txt:2: \"half\"", "number"},
};

using TextReader = InFolder;

TEST_F(TextReader, every_mistake_has_its_message) {
  put("even.txt", "0.5 0.5");
  put("skew.txt", "0.1\n0.5\n0.2\n");
  put("words.txt", "0.5 # a\nhalf\n");
  for (const Mistake &mistake : mistakes) {
    const std::string text = std::string("rate = 16000\n") + mistake.text;
    const Findings findings = read_text(text, folder).log.findings();
    ASSERT_EQ(findings.size(), 1u) << text;
    const Finding &finding = findings.front();
    EXPECT_EQ(finding.severity, mistake.severity) << text;
    EXPECT_EQ(finding.line, mistake.line) << text;
    EXPECT_EQ(finding.key, mistake.key) << text;
    EXPECT_NE(finding.message.find(mistake.found), std::string::npos) << text << "\n" << finding.message;
    EXPECT_NE(finding.message.find(mistake.right), std::string::npos) << text << "\n" << finding.message;
  }
}

// What a file is refused for before its values are looked at.
TEST_F(TextReader, wrong_files_are_refused_with_what_would_be_right) {
  const std::string packed = packed_bytes(config::default_image(16000));
  std::string swapped = packed;
  for (size_t i = 0; i < swapped.size(); i += 2)
    std::swap(swapped[i], swapped[i + 1]);
  const std::pair<std::string, const char *> files[] = {
      {put("short.para", packed.substr(0, 998)), "holds 998 bytes; 1000"},
      {put("swapped.para", swapped), "word 0 is 16000 in big-endian order"},
      {put("empty.para", ""), "is empty"},
      {folder, "is a folder"},
      {at("none.toml"), "neither a file nor a preset"},
      {"balanced-16k-20m", "did you mean \"balanced-16k-20ms\""},
      {put("text.para", "rate = 16000\n[tx.agc]\nknee = 1\n"), "text.para:3: error: tx.agc.knee: no such key"},
  };
  for (const auto &[path, message] : files) {
    const std::string said = refusal([&] { load_valid(path); });
    EXPECT_NE(said.find(message), std::string::npos) << path << ": " << said;
  }
  const ParaFile longer = load_valid(put("longer.para", packed + "x"));
  EXPECT_EQ(longer.image, config::default_image(16000));
  EXPECT_EQ(longer.log.findings().size(), 1u) << "the byte that nothing reads";
}

TEST_F(TextReader, an_equaliser_comes_as_coefficients_points_or_file) {
  put("whole.txt", "# designed elsewhere\n0.125, 0.25\n0.5 0.25 0.125");
  const auto half = [&](const std::string &source) {
    return Values(read_text("rate = 16000\n[rx.eq]\n" + source, folder).image).half_response("rx.eq");
  };
  EXPECT_EQ(half("coef = [0.125, 0.25, 0.5]"), (std::vector<double>{0.125, 0.25, 0.5}));
  EXPECT_EQ(half("file = \"whole.txt\""), (std::vector<double>{0.125, 0.25, 0.5}));
  const auto designed = half("points = [[1000, 0], [3000, -9], [5000, -2]]\ntaps = 101");
  EXPECT_NEAR(response_db(designed, 1000, 16000), 0, 0.5);
  EXPECT_NEAR(response_db(designed, 3000, 16000), -9, 0.5);
  EXPECT_NEAR(response_db(designed, 7000, 16000), -2, 0.1);
}

// All keys of a new text taken into use, it still says the same.
TEST_F(TextReader, a_new_text_is_its_preset_with_every_key_to_hand) {
  for (const Preset &preset : presets()) {
    const std::regex key("# (?!points |taps |file )(\\w+ = )");
    const ReadText read = read_text(std::regex_replace(write_new(std::string(preset.name)), key, "$1"), {});
    EXPECT_TRUE(read.log.findings().empty()) << preset.name;
    EXPECT_EQ(read.image, load_valid(std::string(preset.name)).image);
    for (const Field &field : config::fields)
      EXPECT_GT(read.log.line_of(path_of(field)), 0) << path_of(field);
  }
}

// Words, text, words: catches a decimal that reads back as a neighbour, a word that is neither field nor
// raw, an array cut short, the two layouts taken for each other.
TEST(RoundTrip, any_words_come_back_from_their_text) {
  constexpr unsigned seed = 6;
  std::mt19937 random(seed);
  for (int i = 0; i < 10'000; ++i) {
    Image image;
    const bool sparse = i % 3 == 0; // zeros and switches as in real files
    for (int16_t &word : image)
      word = sparse && random() % 2 ? int16_t(random() % 2) : int16_t(random());
    image[config::rate_word] = i % 50 == 0 ? int16_t(random()) : int16_t(i % 2 ? 8000 : 16000);
    if (i % 5)
      image[config::magic_word] = config::magic;
    if (i % 4 < 3) // both words of the mark, or one
      std::copy_n(config::echo_mark.begin(), i % 4 ? 2 : 1, image.begin() + config::echo_mark_word);
    const std::string text = write_text(image);
    const ReadText read = read_text(text, {});
    ASSERT_TRUE(read.log.findings().empty()) << to_string(read.log.findings().front(), "image " + std::to_string(i));
    ASSERT_EQ(read.image, image) << "image " << i << "\n" << text;
  }
  EXPECT_EQ(write_text(config::default_image(8000)).find("[raw]"), std::string::npos) << "only what is there";
  EXPECT_EQ(shortest(*find_field("tx.anr.noise_scale"), 31130. / 32768), "0.95");
  EXPECT_EQ(shortest(*find_field("tx.agc.knee_low_db"), -641. / 32), "-20.03");
}

// A text from before the section existed packs into the words that it did; the section is all there or not at all.
TEST(EchoControl, is_in_text_and_words_only_while_it_is_on) {
  const std::vector<double> defaults = {1, 320, 60, 0.5, 1};
  const auto values = [](const Image &image) {
    std::vector<double> all;
    for (const Field &field : config::table::echo_control)
      all.push_back(config::value_of(field, image));
    return all;
  };
  const Image without = read_text("rate = 16000", {}).image;
  EXPECT_TRUE(std::all_of(without.begin() + 443, without.end(), [](int16_t word) { return word == 0; }));
  EXPECT_EQ(write_text(without).find("echo_control"), std::string::npos);
  const Image on = read_text("rate = 16000\n[echo_control]\nenable = true", {}).image;
  EXPECT_EQ(values(on), defaults);
  EXPECT_EQ(
      values(read_text("rate = 16000\n[echo_control]\nbackground = 0.25\nenable = true\ntail_ms = 200", {}).image),
      (std::vector<double>{1, 200, 60, 0.5, 0.25}))
      << "the switch comes first, wherever it stands";
  EXPECT_EQ(values(load_valid("clear-16k-20ms").image)[0], 1);
  const ReadText off = read_text("base = \"clear-16k-20ms\"\n[echo_control]\nenable = false", {});
  EXPECT_TRUE(off.log.findings().empty());
  EXPECT_TRUE(std::all_of(off.image.begin() + 443, off.image.end(), [](int16_t word) { return word == 0; }));
}

class ParaVerb : public InFolder {
protected:
  CommandResult para(const std::string &words) const { return run_command(folder, "para " + words); }
};

TEST_F(ParaVerb, from_nothing_to_a_packed_file_and_back) {
  for (const char *words :
       {"new --base balanced-8k-20ms --out my.toml", "check my.toml --rate 8000 --strict", "pack my.toml --out my.para",
        "show my.para --out again.toml", "diff my.para again.toml", "plot my.toml --out plots"})
    EXPECT_EQ(para(words).status, 0) << words;
  EXPECT_EQ(bytes_of(at("my.para")), packed_bytes(load_valid("balanced-8k-20ms").image));
  for (const char *picture : {"plots/gain-control.svg", "plots/equaliser.svg", "plots/double-talk.svg"}) {
    const std::string svg = bytes_of(at(picture));
    EXPECT_TRUE(svg.starts_with("<svg ") && svg.ends_with("</svg>\n")) << picture;
    EXPECT_TRUE(svg.find("nan") == svg.npos && svg.find("inf") == svg.npos) << picture;
  }
}

TEST_F(ParaVerb, statuses_and_messages_tell_wanting_from_wrong_input) {
  put("a.toml", "rate = 8000\n");
  put("bad.toml", "rate = 8000\n[tx.eq]\nhalf_taps = 200\n");
  put("warned.toml", "rate = 8000\n[tx.cng]\nnoise_gain = 0\n");
  put("broken.toml", "rate = 8000\n[tx.eq]\nhalf = 2\n");
  const struct {
    const char *words;
    int status;
    const char *says;
  } cases[] = {
      {"check bad.toml", 1, "bad.toml:3: error: tx.eq.half_taps: 200"},
      {"check bad.toml --json", 1, "\"line\": 3"},
      {"check broken.toml", 1, "broken.toml:3: error: tx.eq.half"},
      {"check warned.toml", 0, "warned.toml: warning: tx.cng.noise_level"},
      {"check warned.toml --strict", 1, ""},
      {"check warned.toml --rate 16000", 1, "warned.toml:1: error: rate: the file is for 8000 Hz, not 16000 Hz"},
      {"diff a.toml bad.toml", 1, "tx.eq.half_taps: 1 -> 200 taps"},
      {"pack bad.toml --out none.para", 1, ""},
      {"pack broken.toml --out none.para --force", 2, ""},
      {"pack bad.toml --out forced.para --force", 0, ""},
      {"pack forced.para --out twice.para", 2, ""},
      {"show forced.para --out forced.para", 2, ""},
      {"show none.toml", 2, "none.toml"},
      {"", 2, ""},
  };
  for (const auto &[words, status, says] : cases) {
    const CommandResult result = para(words);
    EXPECT_EQ(result.status, status) << words;
    EXPECT_NE((result.out + result.err).find(says), std::string::npos) << words << ": " << result.out << result.err;
  }
  EXPECT_FALSE(fs::exists(at("none.para"))) << "nothing half right is written";
}

} // namespace
} // namespace qv::tool::para
