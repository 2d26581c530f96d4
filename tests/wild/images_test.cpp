// Any 500 words whatever, any audio: every call returns success and nothing undefined happens (the sanitizers watch).

#include <array>
#include <unordered_set>

#include "images.h"

namespace {

using namespace qv::test;
using qv::config::Image;

constexpr uint32_t images = 10'400, shards = 8;

/// Random words, some at the ends of the range or around zero. The switches that act for exactly 1 are often that.
Image wild_image(std::mt19937 &random, int32_t rate) {
  constexpr int16_t edges[] = {-32768, -32767, -1, 0, 1, 32767};
  Image image;
  const uint32_t edge_share = random() % 4; // of four
  for (int16_t &word : image)
    word = random() % 4 < edge_share ? edges[random() % std::size(edges)] : int16_t(random());
  for (const size_t word : {10, 11, 13, 14})
    if (random() % 4)
      image[word] = random() % 3 != 0;
  image[0] = int16_t(rate);
  image[9] = qv::config::magic;
  return image;
}

/// Loud noise, full-scale steps, digital silence, faint noise, a constant.
void fill_frame(std::mt19937 &random, int16_t *frame, int32_t count) {
  const uint32_t kind = random() % 5;
  for (int32_t i = 0; i < count; ++i) {
    const auto noise = int16_t(random());
    const int16_t kinds[] = {noise, int16_t(i / 16 % 2 ? 32767 : -32768), 0, int16_t(noise % 3), -32768};
    frame[i] = kinds[kind];
  }
}

class Wild : public testing::TestWithParam<uint32_t> {};

TEST_P(Wild, images_and_signals_do_no_harm) {
  std::unordered_set<std::string> distinct;
  for (uint32_t seed = GetParam(); seed < images; seed += shards) {
    std::mt19937 random(seed);
    const Layout &layout = all_layouts[random() % 4];
    const Image image = wild_image(random, layout.rate);
    distinct.emplace(reinterpret_cast<const char *>(image.data()), sizeof image);
    ASSERT_EQ(QV_VOICE_InitImage(image.data(), layout.rate, layout.frame_len), QV_VOICE_OK);
    std::array<int16_t, 320> far, mic, played, sent;
    for (int frame = 0; frame < 6; ++frame) {
      fill_frame(random, far.data(), layout.frame_len);
      fill_frame(random, mic.data(), layout.frame_len);
      QvVoiceTrace trace{};
      trace.size = sizeof trace;
      ASSERT_EQ(VOICE_Process(far.data(), played.data(), mic.data(), sent.data(), 0), QV_VOICE_OK) << "seed " << seed;
      ASSERT_EQ(QV_VOICE_GetTrace(&trace), QV_VOICE_OK) << "seed " << seed;
    }
  }
  EXPECT_EQ(distinct.size(), images / shards);
  EXPECT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
}

INSTANTIATE_TEST_SUITE_P(, Wild, testing::Range(0u, shards));

} // namespace
