// Bytes in a page: text, pictures and sound come back as they went in.

#include "report/encode.h"

#include <cstring>

#include <gtest/gtest.h>
#include <png.h>

#include "process/files.h"
#include "report/calls.h"
#include "report/html.h"
#include "report/spectrogram.h"

namespace qv::tool::report {
namespace {

TEST(Encode, base64_as_in_rfc_4648) {
  for (const auto &[plain, coded] : {std::pair("", ""),
                                     {"f", "Zg=="},
                                     {"fo", "Zm8="},
                                     {"foo", "Zm9v"},
                                     {"foob", "Zm9vYg=="},
                                     {"fooba", "Zm9vYmE="},
                                     {"foobar", "Zm9vYmFy"},
                                     {"\xff\xfe\xfd", "//79"}})
    EXPECT_EQ(base64({reinterpret_cast<const uint8_t *>(plain), std::strlen(plain)}), coded);
}

TEST(Encode, png_keeps_every_pixel) {
  const GreyPicture picture{3, 2, {0, 1, 255, 7, 128, 60}};
  const Bytes packed = png(picture);
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  ASSERT_TRUE(png_image_begin_read_from_memory(&image, packed.data(), packed.size()));
  image.format = PNG_FORMAT_GRAY;
  Bytes pixels(PNG_IMAGE_SIZE(image));
  ASSERT_TRUE(png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr));
  EXPECT_EQ(image.width, 3u);
  EXPECT_EQ(pixels, picture.pixels);
}

class Flac : public InFolder {};

TEST_F(Flac, keeps_every_sample) {
  const test::Call call = test::noise(0.7, 16000);
  const Bytes packed = flac({16000, call.mic});
  const Recording read = read_audio({put("a.flac", {packed.begin(), packed.end()}), 0, {}});
  EXPECT_EQ(read.audio.rate, 16000);
  EXPECT_EQ(read.audio.samples, call.mic);
}

TEST(Spectrogram, shows_a_tone_at_its_level_place_and_time) {
  const test::Call call = test::tones(4);
  const SpectrogramScale scale = spectrogram_scale(call.mic.size(), call.rate);
  EXPECT_EQ(scale.columns, 401);
  EXPECT_EQ(scale.column_seconds, 0.01);
  const GreyPicture picture = spectrogram(to_signal(call.mic), call.rate, scale);
  const auto level = [&](double time, double hz) {
    const auto row = scale.rows - 1 - int(std::lround(hz / scale.row_hz)),
               column = int(std::lround(time / scale.column_seconds));
    return int(picture.pixels.at(size_t(row * scale.columns + column))) - grey_of_full_scale;
  };
  EXPECT_NEAR(level(1.5, 1000), 20 * std::log10(test::tone_amplitude) - 3.01, 0.6);
  EXPECT_LT(level(1.5, 1100), -80); // the window's first side lobes lie lower still
  EXPECT_EQ(level(0.9, 1000), -grey_of_full_scale);
  EXPECT_EQ(level(2.1, 1000), -grey_of_full_scale);
  EXPECT_LE(spectrogram_scale(size_t(3600) * 16000, 16000).columns, 16384); // what browsers draw
}

TEST(Html, a_name_cannot_break_out) {
  EXPECT_EQ(escape("<b> & \"c\""), "&lt;b> &amp; \"c\"");
  EXPECT_EQ(script_json({{"name", "</script>\xff"}}), "{\"name\":\"\\u003c/script>\xEF\xBF\xBD\"}");
}

} // namespace
} // namespace qv::tool::report
