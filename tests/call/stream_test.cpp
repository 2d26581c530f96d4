// Blocks of any length: the frames of the call, as far behind as promised.

#include "calls.h"

namespace {

using namespace qv::test;

constexpr int32_t any = 0;

struct Blocks {
  const char *what;
  int32_t block;                ///< as promised at creation
  std::vector<uint32_t> counts; ///< of the calls, in turn
  int32_t grain;                ///< samples of the frame's delay that the blocks save, for frames of 320
};

const Blocks table[] = {
    {"10 ms", 160, {160}, 160}, {"whole frames", 320, {320, 640}, 320},
    {"128", 128, {128}, 64},    {"441, odd against 320", 441, {441}, 1},
    {"1024", 1024, {1024}, 64}, {"any", any, {1, 0, 7, 319, 320, 321, 2000, 13}, 1},
};

// Frame r of the call begins at sample r * N of the stream's input and comes out N - grain samples later.
TEST(Stream, gives_the_frames_of_the_call_as_late_as_it_says) {
  const Layout layout = {16000, 320, 32};
  const Call signals(layout, 60);
  const Samples &far = signals.far, &mic = signals.mic;
  for (const Blocks &blocks : table) {
    SCOPED_TRACE(blocks.what);
    const bool is_odd = (&blocks - table) % 2;
    const auto image = is_odd ? marked(busy_image(16000)) : busy_image(16000);
    const Outputs expected = run(make_call(layout, image).get(), layout, signals, true);
    const CallPtr call = make_call(layout, image), float_call = make_call(layout, image);
    qv_stream *made[2];
    ASSERT_EQ(qv_stream_create(call.get(), blocks.block, &made[0]), QV_VOICE_OK);
    ASSERT_EQ(qv_stream_create(float_call.get(), blocks.block, &made[1]), QV_VOICE_OK);
    const StreamPtr stream(made[0]), float_stream(made[1]);

    std::vector<float> far_float(far.size()), mic_float(far.size()), sent_float(far.size());
    std::transform(far.begin(), far.end(), far_float.begin(), [](int16_t x) { return float(x) / 32768; });
    std::transform(mic.begin(), mic.end(), mic_float.begin(), [](int16_t x) { return float(x) / 32768; });
    Outputs out{far, Samples(far.size())}; // receive in place
    size_t at = 0;
    for (size_t turn = 0;; ++turn) {
      const uint32_t count = blocks.counts[turn % blocks.counts.size()];
      if (at + count > far.size())
        break;
      ASSERT_EQ(qv_stream_receive(stream.get(), &out.played[at], &out.played[at], count), QV_VOICE_OK);
      ASSERT_EQ(qv_stream_transmit(stream.get(), &mic[at], &far[at], &out.sent[at], count), QV_VOICE_OK);
      ASSERT_EQ(qv_stream_transmit_float(float_stream.get(), &mic_float[at], &far_float[at], &sent_float[at], count),
                QV_VOICE_OK);
      at += count;
    }
    const auto delay = size_t(320 - blocks.grain);
    int32_t tx, rx, call_tx, call_rx;
    ASSERT_EQ(qv_stream_latency(stream.get(), &tx, &rx), QV_VOICE_OK);
    ASSERT_EQ(qv_call_latency(call.get(), &call_tx, &call_rx), QV_VOICE_OK);
    EXPECT_EQ(tx - call_tx, int32_t(delay));
    EXPECT_EQ(rx - call_rx, int32_t(delay));
    ASSERT_GT(at, 40u * 320);
    for (size_t i = 0; i < at; ++i) {
      ASSERT_EQ(out.sent[i], i < delay ? 0 : expected.sent[i - delay]) << i;
      ASSERT_EQ(out.played[i], i < delay ? 0 : expected.played[i - delay]) << i;
      ASSERT_EQ(sent_float[i] * 32768, out.sent[i]) << i;
    }
  }
}

TEST(Stream, refuses_blocks_other_than_promised_and_clips_floats) {
  const Layout layout = {8000, 160, 24};
  qv::config::Image off{};
  off[0] = 8000;
  off[9] = qv::config::magic;
  const CallPtr call = make_call(layout, off);
  qv_stream *made = nullptr;
  EXPECT_EQ(qv_stream_create(call.get(), -1, &made), QV_VOICE_BAD_ARGUMENT);
  EXPECT_EQ(qv_stream_create(nullptr, 0, &made), QV_VOICE_BAD_ARGUMENT);
  ASSERT_EQ(qv_stream_create(call.get(), 160, &made), QV_VOICE_OK);
  const StreamPtr stream(made);
  float in[160] = {2.f, -2.f, NAN, INFINITY, 0.5f / 32768, 1.f}, out[160];
  EXPECT_EQ(qv_stream_receive_float(stream.get(), in, out, 159), QV_VOICE_BAD_ARGUMENT);
  EXPECT_EQ(qv_stream_receive_float(stream.get(), in, nullptr, 160), QV_VOICE_BAD_ARGUMENT);
  ASSERT_EQ(qv_stream_receive_float(stream.get(), in, out, 160), QV_VOICE_OK);
  const float expected[] = {32767, -32768, 0, 32767, 1, 32767};
  for (size_t i = 0; i < std::size(expected); ++i)
    EXPECT_EQ(out[i] * 32768, expected[i]) << i;
}

} // namespace
