#include <gtest/gtest.h>

#include <random>

#include "para/para_file.h"
#include "para/presets.h"
#include "para/text_reader.h"
#include "para/text_writer.h"

namespace qv::tool::para {
namespace {

// Words, text, words: catches a decimal that reads back as a neighbour, a word that is neither field nor
// raw, an array cut short, the two layouts taken for each other.
void expect_round_trip(const Image &image, const std::string &what) {
  const std::string text = write_text(image);
  const ReadText read = read_text(text, {});
  for (const Finding &finding : read.log.findings())
    ADD_FAILURE() << what << ": " << to_string(finding, "text");
  ASSERT_EQ(read.image, image) << what << "\n" << text;
}

TEST(RoundTrip, any_words_come_back_from_their_text) {
  constexpr unsigned seed = 6;
  constexpr int images = 10'000;
  std::mt19937 random(seed);
  const auto rate_of = [&](int i) { return i % 50 == 0 ? int16_t(random()) : int16_t(i % 2 ? 8000 : 16000); };
  for (int i = 0; i < images && !testing::Test::HasFatalFailure(); ++i) {
    Image image;
    const bool sparse = i % 3 == 0; // zeros and switches as in real files
    for (int16_t &word : image)
      word = sparse && random() % 2 ? int16_t(random() % 2) : int16_t(random());
    image[config::rate_word] = rate_of(i);
    if (i % 5)
      image[config::magic_word] = config::magic;
    expect_round_trip(image, "seed " + std::to_string(seed) + ", image " + std::to_string(i));
  }
}

TEST(RoundTrip, presets_and_defaults_come_back) {
  ASSERT_EQ(presets().size(), 16u);
  for (const Preset &preset : presets())
    expect_round_trip(load_valid(std::string(preset.name)).image, std::string(preset.name));
  for (const int32_t rate : {8000, 16000}) {
    expect_round_trip(config::default_image(rate), std::to_string(rate));
    EXPECT_EQ(write_text(config::default_image(rate)).find("[raw]"), std::string::npos) << "only what is there";
  }
}

// Every word of every encoding has a decimal of its own, no longer than the step needs.
TEST(RoundTrip, shortest_decimal_of_every_word) {
  for (const char *path :
       {"aec.echo_delay", "aec.suppressor.exponent", "tx.agc.knee_low_db", "tx.agc.slope_mid", "tx.anr.noise_scale"}) {
    const Field &field = *find_field(path);
    for (int word = INT16_MIN; word <= INT16_MAX; ++word) {
      const std::string text = shortest(field, int16_t(word));
      ASSERT_EQ(config::encode(field, std::stod(text)), word) << path << " " << text;
      ASSERT_TRUE(text.find('.') == text.npos || text.back() != '0') << path << " " << text;
    }
  }
  const auto printed = [](const char *path, int16_t word) { return shortest(*find_field(path), word); };
  EXPECT_EQ(printed("tx.anr.noise_scale", 31130), "0.95");
  EXPECT_EQ(printed("tx.anr.noise_scale", 32767), "0.99997");
  EXPECT_EQ(printed("tx.agc.knee_low_db", -641), "-20.03");
  EXPECT_EQ(printed("tx.agc.slope_mid", 2048), "0.5");
}

} // namespace
} // namespace qv::tool::para
