// Any 500 words whatever, any audio: every call returns success and nothing undefined happens (the sanitizers watch).

#include <array>

#include "images.h"

namespace {

using namespace qv::test;

class Wild : public testing::TestWithParam<uint32_t> {};

TEST_P(Wild, images_and_signals_do_no_harm) {
  for (uint32_t seed = GetParam(); seed < 10'400; seed += 8) {
    std::mt19937 random(seed);
    const Layout &layout = all_layouts[random() % 4];
    constexpr int16_t edges[] = {-32768, -32767, -1, 0, 1, 32767};
    const uint32_t edge_share = random() % 4; // of four
    qv::config::Image image;
    for (int16_t &word : image)
      word = random() % 4 < edge_share ? edges[random() % std::size(edges)] : int16_t(random());
    for (const size_t word : {10, 11, 13, 14}) // switches that act for exactly 1
      if (random() % 4)
        image[word] = random() % 3 != 0;
    if (random() % 2) // the state-space canceller, with whatever tuning
      std::ranges::copy(qv::config::echo_mark, &image[qv::config::echo_mark_word]);
    image[0] = int16_t(layout.rate);
    image[9] = qv::config::magic;
    ASSERT_EQ(QV_VOICE_InitImage(image.data(), layout.rate, layout.frame_len), QV_VOICE_OK);
    std::array<int16_t, 320> far, mic, played, sent;
    for (int frame = 0; frame < 6; ++frame) {
      for (auto *signal : {&far, &mic})
        for (size_t i = 0, kind = random() % 5; i < signal->size(); ++i) {
          const auto noise = int16_t(random()), step = int16_t(i / 16 % 2 ? 32767 : -32768);
          signal->at(i) = std::array<int16_t, 5>{noise, step, 0, int16_t(noise % 3), -32768}[kind];
        }
      QvVoiceTrace trace{};
      trace.size = sizeof trace;
      ASSERT_EQ(VOICE_Process(far.data(), played.data(), mic.data(), sent.data(), 0), QV_VOICE_OK) << "seed " << seed;
      ASSERT_EQ(QV_VOICE_GetTrace(&trace), QV_VOICE_OK) << "seed " << seed;
    }
  }
  EXPECT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
}

INSTANTIATE_TEST_SUITE_P(, Wild, testing::Range(0u, 8u));

} // namespace
