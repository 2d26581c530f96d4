// What an integrator asks: latency, trace, version, texts.

#include <array>
#include <bit>
#include <numeric>
#include <set>
#include <string>

#include "images.h"

namespace {

using namespace qv::test;
using qv::config::Image;

/// Where a lone click comes out of one path while the other is silent: the position of the largest sample.
int64_t click_delay(const Layout &layout, const Image &image, Samples Call::*input, Samples Outputs::*output) {
  EXPECT_EQ(QV_VOICE_InitImage(image.data(), layout.rate, layout.frame_len), QV_VOICE_OK);
  Call call(layout, 12);
  call.far.assign(call.far.size(), 0);
  call.mic.assign(call.mic.size(), 0);
  const auto click = size_t(8 * layout.frame_len) + 37; // past the muted start of the delay search
  (call.*input)[click] = 20000;
  const Samples out = run(layout, call).*output;
  const auto quieter = [](int16_t a, int16_t b) { return std::abs(a) < std::abs(b); };
  const auto largest = std::max_element(out.begin(), out.end(), quieter);
  return std::abs(*largest) > 1000 ? largest - out.begin() - int64_t(click) : -1;
}

TEST(Latency, is_what_a_click_shows_for_every_combination_of_stages) {
  constexpr size_t switches[] = {10, 100, 120, 160, 440, 110, 140, 300}; // of both paths
  for (const Layout &layout : all_layouts)
    for (uint32_t on = 0; on < 256; ++on) {
      Image image = busy_image(layout.rate);
      for (size_t stage = 0; stage < std::size(switches); ++stage)
        image[switches[stage]] = on >> stage & 1;
      const int64_t tx_click = click_delay(layout, image, &Call::mic, &Outputs::sent);
      const int64_t rx_click = click_delay(layout, image, &Call::far, &Outputs::played);
      int32_t tx = -7, rx = -7;
      ASSERT_EQ(QV_VOICE_GetLatency(&tx, &rx), QV_VOICE_OK);
      ASSERT_EQ(tx_click, tx) << layout << ", stages " << on;
      ASSERT_EQ(rx_click, rx) << layout << ", stages " << on;
    }
  EXPECT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
}

// The record may grow at its end; what is there keeps its place. Every field is 4 bytes wide.
TEST(Trace, fields_keep_their_places) {
  std::array<uint32_t, 32> places;
  std::iota(places.begin(), places.end(), 0);
  const auto t = std::bit_cast<QvVoiceTrace>(places);
  const auto words = [](auto... fields) { return std::array{std::bit_cast<uint32_t>(fields)...}; };
  EXPECT_EQ(words(t.size, t.tx_frame, t.rx_frame, t.echo_delay, t.delay_changed, t.talk_state, t.leakage,
                  t.filter_adapted, t.foreground_refreshed, t.background_reset, t.filter_reset, t.linear_erle_db,
                  t.erle_db, t.suppressor_gain, t.muted, t.tx_noise.noise_db, t.tx_noise.mean_gain,
                  t.tx_noise.speech_presence, t.rx_noise.noise_db, t.rx_noise.mean_gain, t.rx_noise.speech_presence,
                  t.tx_agc_gain, t.rx_agc_gain, t.comfort_noise, t.state_space, t.filter_delay, t.filter_length,
                  t.path_changed, t.single_talk, t.drift_ppm, t.explained, t.expected_residual_db),
            places);
}

TEST(Trace, fills_what_the_caller_knows_and_nothing_else) {
  const Layout layout = {8000, 160, 24};
  ASSERT_EQ(QV_VOICE_InitImage(busy_image(8000).data(), 8000, 160), QV_VOICE_OK);
  run(layout, Call(layout, 30));
  const QvVoiceTrace whole = trace();
  EXPECT_EQ(whole.tx_frame, 30u);
  EXPECT_EQ(whole.rx_frame, 30u);
  const auto *expected = reinterpret_cast<const unsigned char *>(&whole);
  for (const uint32_t size : {0u, 11u, 12u, 14u, 40u, uint32_t(sizeof whole), uint32_t(sizeof whole) + 20}) {
    alignas(QvVoiceTrace) unsigned char record[sizeof whole + 20];
    std::fill(std::begin(record), std::end(record), 0xee);
    auto *filled_in = reinterpret_cast<QvVoiceTrace *>(record);
    filled_in->size = size;
    EXPECT_EQ(QV_VOICE_GetTrace(filled_in), size < 12 ? QV_VOICE_BAD_ARGUMENT : QV_VOICE_OK);
    EXPECT_EQ(filled_in->size, size);
    const size_t filled = size < 12 ? 4 : std::min<size_t>(size, sizeof whole);
    EXPECT_TRUE(std::equal(record + 4, record + filled, expected + 4)) << size;
    EXPECT_EQ(std::count(record + filled, std::end(record), 0xee), std::end(record) - (record + filled)) << size;
  }
  EXPECT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
}

TEST(Info, version_and_texts) {
  EXPECT_STREQ(QV_VOICE_Version(), QVVOICE_EXPECTED_VERSION);
  std::set<std::string> texts;
  for (int32_t status = QV_VOICE_OK - 1; status <= QV_VOICE_OUT_OF_MEMORY; ++status)
    texts.insert(QV_VOICE_StatusText(status));
  EXPECT_EQ(texts.size(), 8u);
  for (const int32_t status : {-1, 7, INT32_MAX})
    EXPECT_STREQ(QV_VOICE_StatusText(status), "unknown status");
  EXPECT_EQ(VOICE_GetPara(&texts), &texts);
}

} // namespace
