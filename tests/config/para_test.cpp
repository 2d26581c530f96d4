// The conversion of an image into the parameter block, held against a word list of its own.

#include "qvvoice/config/para.h"

#include <cstring>
#include <map>
#include <set>

#include "config/fields.h"
#include "support.h"

namespace {

using namespace qv::test;
using namespace qv::config;

/// Every word different from its neighbours and from its value in another rate's image.
Image counting_image(int32_t rate) {
  Image image;
  for (size_t i = 0; i < image.size(); ++i)
    image[i] = int16_t(int32_t(i) * 61 - 15000 + rate / 1000);
  image[rate_word] = int16_t(rate);
  image[magic_word] = magic;
  return image;
}

/// What each word that is read becomes, and where: word -> value found in the block, times the units of one.
std::map<int32_t, double> words_in_block(int32_t rate) {
  const VoicePara &p = g_stVoicePara;
  const AecDtdPara &dtd = p.stAec.stDtd;
  std::map<int32_t, double> found = {
      {0, p.swSampleRate},         {10, p.stAec.swAecEnable},          {11, p.stAec.stDelay.swDelayEstEnable},
      {12, p.stAec.swEchoDelay},   {13, p.stAec.stNlp.swSerSupEnable}, {14, p.stAec.stNlp.swCohSupEnable},
      {15, p.stAec.stNlp.fSupExp}, {440, p.stCngTx.swCngEnable},       {441, p.stCngTx.fNoiseLevel},
      {442, p.stCngTx.fNoiseGain},
  };
  const int32_t groups = rate == 8000 ? 6 : 8;
  const auto add = [&found](int32_t word, std::initializer_list<double> values) {
    for (const double value : values)
      found[word++] = value;
  };
  for (int32_t g = 0; g < groups; ++g) {
    add(16 + 2 * g, {dtd.afBandFarThr[g], p.stAec.stNlp.afBandSupFactor[g]});
    add(16 + 2 * groups + 7 * g,
        {double(dtd.aswBandJudgeEnable[g]), dtd.afBandFarMin[g], dtd.afResLow[g], dtd.afResHigh[g],
         dtd.afRatioLow[g] * 32768.0, dtd.afRatioHigh[g] * 32768.0, dtd.afResDropFactor[g]});
  }
  add(16 + 9 * groups, {double(dtd.swCountBandStart), double(dtd.swCountBandEnd), double(dtd.swCountMin),
                        double(dtd.swSingleTalkHang), dtd.fPresenceThrInit * 32768.0, dtd.fPresenceThrStep * 32768.0,
                        dtd.fPresenceThrMax * 32768.0, dtd.fPresenceThrMin * 32768.0, dtd.fFarActiveThr});
  for (const auto &[word, anr] : {std::pair{100, &p.stAnrTx}, {110, &p.stAnrRx}})
    add(word, {double(anr->swAnrEnable), anr->fNoiseScale * 32768.0});
  for (const auto &[word, agc] : {std::pair{120, &p.stAgcTx}, {140, &p.stAgcRx}})
    add(word, {double(agc->swAgcEnable), agc->fKneeGainDb * 32.0, agc->fReservedDb * 32.0, agc->fKneeLowDb * 32.0,
               agc->fKneeHighDb * 32.0, agc->fSlopeLow * 4096.0, agc->fSlopeMid * 4096.0, agc->fSlopeHigh * 4096.0,
               double(agc->swRampLow), double(agc->swRampMid), double(agc->swRampHigh)});
  for (const auto &[word, eq] : {std::pair{160, &p.stEqTx}, {300, &p.stEqRx}}) {
    add(word, {double(eq->swEqEnable), double(eq->swHalfTapNum)});
    for (int32_t i = 0; i < EQ_MAX_HALF_TAPS; ++i)
      add(word + 2 + i, {eq->afCoef[i] * 32768.0});
  }
  return found;
}

std::vector<int32_t> sizes_in_block() {
  const VoicePara &p = g_stVoicePara;
  return {p.stAec.swFrameLen,
          p.stAec.stMdf.swFrameLen,
          p.stAec.stNlp.swFrameLen,
          p.stAec.stDtd.swFrameLen,
          p.stAnrTx.swFrameLen,
          p.stAnrRx.swFrameLen,
          p.stAgcTx.swFrameLen,
          p.stAgcRx.swFrameLen,
          p.stEqTx.swFrameLen,
          p.stEqRx.swFrameLen,
          p.stCngTx.swFrameLen,
          p.swFrameLen,
          p.stAec.stDelay.swBlockLen * 2,
          p.stAec.stMdf.swFilterLen / 2};
}

TEST(Para, every_word_lands_in_its_field_at_both_rates) {
  for (const Layout &layout : all_layouts) {
    const Image image = counting_image(layout.rate);
    ASSERT_EQ(VOICE_SetPara_1(image.data(), layout.rate, layout.frame_len), 0);
    const auto found = words_in_block(layout.rate);
    EXPECT_EQ(found.size(), layout.rate == 8000 ? 361u : 379u);
    for (const auto &[word, value] : found)
      EXPECT_EQ(value, image[size_t(word)]) << layout << " word " << word;
    EXPECT_EQ(sizes_in_block(), std::vector<int32_t>(14, layout.frame_len)) << layout;
    const VoicePara &p = g_stVoicePara;
    for (const int32_t bands :
         {p.stAec.stNlp.swBandNum, p.stAec.stDtd.swBandNum, p.stAnrTx.swBandNum, p.stAnrRx.swBandNum})
      EXPECT_EQ(bands, layout.bands);
    for (const int32_t rate : {p.stAec.stMdf.swSampleRate, p.stAnrTx.swSampleRate, p.stAnrRx.swSampleRate,
                               p.stAgcTx.swSampleRate, p.stAgcRx.swSampleRate, p.stCngTx.swSampleRate})
      EXPECT_EQ(rate, layout.rate);
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
  struct Case {
    int32_t word0, rate, frame_len;
  };
  for (const auto &[word0, rate, frame_len] : std::initializer_list<Case>{{8000, 16000, 320},
                                                                          {16000, 8000, 160},
                                                                          {8000, 8000, 192},
                                                                          {8000, 8000, 256},
                                                                          {16000, 16000, 160},
                                                                          {16000, 16000, 0},
                                                                          {0, 0, 0},
                                                                          {11025, 11025, 160},
                                                                          {-17536, 48000, 960},
                                                                          {8000, 8000 + 65536, 160}}) {
    const Image image = counting_image(word0);
    EXPECT_EQ(VOICE_SetPara_1(image.data(), rate, frame_len), 2) << word0 << " " << rate << " " << frame_len;
    EXPECT_EQ(std::memcmp(&before, &g_stVoicePara, sizeof before), 0);
  }
}

// The table of fields is the source of the text form and the reference page as well: it must be whole and its values
// must survive the way into a word and back.
TEST(Fields, each_has_words_of_its_own_and_a_sensible_default) {
  for (const int32_t rate : {8000, 16000}) {
    std::set<int32_t> words = {rate_word, magic_word};
    size_t count = words.size();
    for (const Field &field : fields) {
      for (int32_t i = 0; i < field.count(rate); ++i, ++count)
        words.insert(field.word(rate, i));
      EXPECT_LE(field.least, field.preset) << field.name;
      EXPECT_GE(field.greatest, field.preset) << field.name;
      for (const double value : {field.least, field.preset, field.greatest})
        EXPECT_NEAR(decode(field, encode(field, value)), value, double(unit_of(field.encoding))) << field.name;
    }
    EXPECT_EQ(words.size(), count) << "two fields share a word at " << rate;
    EXPECT_EQ(count, rate == 8000 ? 362u : 380u);
    EXPECT_EQ(VOICE_SetPara_1(default_image(rate).data(), rate, rate / 50), 0);
  }
}

} // namespace
