// The conversion of an image into the parameter block, held against a word list of its own.

#include "qvvoice/config/para.h"

#include <cstring>
#include <set>

#include "config/fields.h"
#include "support.h"

namespace {

using namespace qv::test;
using namespace qv::config;

constexpr const Field &enable = table::echo_control[0];

/// Every word different from its neighbours and from its value in another rate's image.
Image counting_image(int32_t rate) {
  Image image;
  for (size_t i = 0; i < image.size(); ++i)
    image[i] = int16_t(int32_t(i) * 61 - 15000 + rate / 1000);
  image[rate_word] = int16_t(rate);
  image[magic_word] = magic;
  return image;
}

// The rows per band group, which move with their number and hold like values; what the file does not carry, over
// whatever an application has left in the exported block.
TEST(Para, band_groups_layout_and_fixed_tuning_land_in_their_fields) {
  VoicePara &p = g_stVoicePara;
  const AecDtdPara &dtd = p.stAec.stDtd;
  for (const Layout &layout : all_layouts) {
    const Image image = counting_image(layout.rate);
    p.stAec.stDelay.swLookahead = p.stAec.stDelay.swHistorySize = p.stAgcTx.swSampleRate = p.stAgcRx.swSampleRate = 3;
    ASSERT_EQ(VOICE_SetPara_1(image.data(), layout.rate, layout.frame_len), 0);
    EXPECT_EQ(p.stAec.stDelay.swLookahead, 0);
    EXPECT_EQ(p.stAec.stDelay.swHistorySize, 32);
    EXPECT_EQ(p.stAec.stDelay.swBlockLen, layout.frame_len / 2);
    EXPECT_EQ(p.stAec.stMdf.swFilterLen, 2 * layout.frame_len);
    for (const int32_t rate :
         {int32_t(p.swSampleRate), p.stAec.stMdf.swSampleRate, p.stAnrTx.swSampleRate, p.stAnrRx.swSampleRate,
          p.stAgcTx.swSampleRate, p.stAgcRx.swSampleRate, p.stCngTx.swSampleRate})
      EXPECT_EQ(rate, layout.rate);
    for (const int32_t n :
         {int32_t(p.swFrameLen), p.stAec.swFrameLen, p.stAec.stMdf.swFrameLen, p.stAec.stNlp.swFrameLen,
          p.stAec.stDtd.swFrameLen, p.stAnrTx.swFrameLen, p.stAnrRx.swFrameLen, p.stAgcTx.swFrameLen,
          p.stAgcRx.swFrameLen, int32_t(p.stEqTx.swFrameLen), int32_t(p.stEqRx.swFrameLen), p.stCngTx.swFrameLen})
      EXPECT_EQ(n, layout.frame_len);
    for (const int32_t b : {p.stAec.stNlp.swBandNum, p.stAec.stDtd.swBandNum, p.stAnrTx.swBandNum, p.stAnrRx.swBandNum})
      EXPECT_EQ(b, layout.bands);
    const int32_t groups = layout.bands / 4;
    for (int32_t g = 0; g < groups; ++g) {
      int32_t word = 16 + 2 * g;
      for (const double value : {dtd.afBandFarThr[g], p.stAec.stNlp.afBandSupFactor[g]})
        EXPECT_EQ(value, image[size_t(word++)]) << layout << ", group " << g;
      word = 16 + 2 * groups + 7 * g;
      for (const double value :
           {float(dtd.aswBandJudgeEnable[g]), dtd.afBandFarMin[g], dtd.afResLow[g], dtd.afResHigh[g],
            dtd.afRatioLow[g] * 32768, dtd.afRatioHigh[g] * 32768, dtd.afResDropFactor[g]})
        EXPECT_EQ(value, image[size_t(word++)]) << layout << ", group " << g;
    }
  }
}

TEST(Para, other_rate_keeps_what_it_does_not_write) {
  const Image wide = counting_image(16000), narrow = counting_image(8000);
  ASSERT_EQ(VOICE_SetPara_1(wide.data(), 16000, 320), 0);
  const AecDtdPara before = g_stVoicePara.stAec.stDtd;
  ASSERT_EQ(VOICE_SetPara_1(narrow.data(), 8000, 160), 0);
  const AecDtdPara &after = g_stVoicePara.stAec.stDtd;
  EXPECT_NE(after.afResLow[5], before.afResLow[5]);
  for (const int32_t g : {6, 7}) {
    EXPECT_EQ(after.afResLow[g], before.afResLow[g]);
    EXPECT_EQ(after.aswBandJudgeEnable[g], before.aswBandJudgeEnable[g]);
  }
  const CngPara zero{};
  EXPECT_EQ(std::memcmp(&g_stVoicePara.stCngAux, &zero, sizeof zero), 0);
  EXPECT_EQ(g_stVoicePara.stCngTx.fLevelSmooth, 0.92f);
  EXPECT_EQ(g_stVoicePara.stAnrRx.fAvgSnrMax, 0.516f);
}

TEST(Para, refusal_writes_nothing) {
  ASSERT_EQ(VOICE_SetPara_1(counting_image(8000).data(), 8000, 160), 0);
  const VoicePara before = g_stVoicePara;
  const int32_t refused[][3] = {{8000, 16000, 320},   {16000, 8000, 160},       {8000, 8000, 192}, {8000, 8000, 256},
                                {16000, 16000, 160},  {16000, 16000, 0},        {0, 0, 0},         {11025, 11025, 160},
                                {-17536, 48000, 960}, {8000, 8000 + 65536, 160}};
  for (const auto &[word0, rate, frame_len] : refused) {
    EXPECT_EQ(VOICE_SetPara_1(counting_image(word0).data(), rate, frame_len), 2) << word0 << " " << rate;
    EXPECT_EQ(std::memcmp(&before, &g_stVoicePara, sizeof before), 0) << word0 << " " << rate << " " << frame_len;
  }
}

// The table of fields is the source of the text form and the reference page as well: it must be whole and its values
// must survive the way into a word and back.
TEST(Fields, each_has_words_of_its_own_and_a_sensible_default) {
  for (const int32_t rate : {8000, 16000}) {
    Image image = default_image(rate);
    set_value(enable, image, 0, 1);
    std::set<int32_t> words = {rate_word, magic_word};
    size_t count = words.size();
    for (const Field &field : fields) {
      for (int32_t i = 0; i < field.words(rate); ++i, ++count)
        words.insert(field.word(rate, i));
      EXPECT_EQ(field.word_stride == 0, field.words(rate) == 1) << field.name;
      EXPECT_LE(field.least, field.preset) << field.name;
      EXPECT_GE(field.greatest, field.preset) << field.name;
      for (const double value : {field.least, field.preset, field.greatest}) {
        Image changed = image;
        set_value(field, changed, 0, value);
        EXPECT_NEAR(value_of(field, changed), value, double(unit_of(field.encoding))) << field.name;
      }
    }
    EXPECT_EQ(words.size(), count) << "two fields share a word at " << rate;
    EXPECT_EQ(count, rate == 8000 ? 368u : 386u);
    EXPECT_EQ(VOICE_SetPara_1(default_image(rate).data(), rate, rate / 50), 0);
  }
}

// A word of the mark alone, the two exchanged, or strays behind them: nobody has asked for the other canceller.
TEST(EchoControl, is_zero_without_the_whole_mark) {
  const qv::state_space::Tuning none{};
  const int16_t first = echo_mark[0], second = echo_mark[1];
  for (const auto &[a, b] : {std::pair<int16_t, int16_t>{0, 0},
                             {first, 0},
                             {0, second},
                             {second, first},
                             {first, first},
                             {1, 1},
                             {int16_t(first + 1), second},
                             {first, int16_t(second - 1)}}) {
    Image image = counting_image(16000);
    image[echo_mark_word] = a;
    image[echo_mark_word + 1] = b;
    qv::Parameters parameters{{}, {1, 1, 1, 1, 1}};
    store_fields(image, parameters);
    EXPECT_EQ(std::memcmp(&parameters.echo_control, &none, sizeof none), 0) << a << " " << b;
    const Image before = image;
    for (const Field &field : table::echo_control) {
      EXPECT_FALSE(owns_words(field, image)) << field.name;
      EXPECT_EQ(value_of(field, image), double(field.preset)) << field.name;
      set_value(field, image, 0, field.encoding == Encoding::mark ? 0 : double(field.least));
    }
    EXPECT_EQ(image, before) << "strays are nobody's to change";
  }
}

// All that an older library reads stays, whatever is said of the other canceller, and nothing is left of it when it is
// switched off.
TEST(EchoControl, comes_and_goes_in_words_of_its_own) {
  for (const int32_t rate : {8000, 16000}) {
    const Image plain = counting_image(rate);
    Image image = plain;
    set_value(enable, image, 0, 1);
    for (size_t word = 0; word < image.size(); ++word)
      EXPECT_TRUE(image[word] == plain[word] || (word >= 450 && word < 456)) << word;
    qv::Parameters before, after;
    store_fields(plain, before);
    store_fields(image, after);
    EXPECT_EQ(std::memcmp(&before.block, &after.block, sizeof before.block), 0);
    const auto tuning = [&] {
      const qv::state_space::Tuning &t = after.echo_control;
      return std::tuple(t.enable, t.tail_ms, t.depth_db, t.care, t.background);
    };
    EXPECT_EQ(tuning(), std::tuple(1, 320, 60, 0.5f, 1));
    const int16_t words[] = {200, 81, 1024, -1};
    std::copy_n(words, 4, image.begin() + 452);
    set_value(enable, image, 0, 1); // it is on: its values stay
    store_fields(image, after);
    EXPECT_EQ(tuning(), std::tuple(1, 200, 80, 0.25f, 0));
    set_value(enable, image, 0, 0);
    for (size_t word = 450; word < 456; ++word)
      EXPECT_EQ(image[word], 0) << word;
  }
}

} // namespace
