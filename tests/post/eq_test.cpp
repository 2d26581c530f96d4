// The equaliser as a filter of an endless signal, whatever its length and the frames.

#include "qvvoice/post/eq.h"

#include "dsp/sample.h"
#include "support.h"

namespace {

using namespace qv::test;

struct Equaliser {
  EqState state{};
  explicit Equaliser(const EqPara &para) { EQ_Init(&para, &state); }
  Equaliser(const Equaliser &) = delete;
  ~Equaliser() { EQ_Destroy(&state); }

  /// The signal, frame by frame, in place.
  Samples filtered(Samples signal) {
    for (size_t at = 0; at < signal.size(); at += size_t(state.swFrameLen))
      EQ_Process(signal.data() + at, signal.data() + at, &state);
    return signal;
  }
};

EqPara random_equaliser(int32_t half, int32_t frame_len) {
  EqPara para{.swEqEnable = 1, .swFrameLen = int16_t(frame_len), .swHalfTapNum = int16_t(half), .afCoef = {}};
  const Samples words = noise_samples(uint32_t(half), EQ_MAX_HALF_TAPS, 32767);
  for (size_t i = 0; i < words.size(); ++i)
    para.afCoef[i] = float(words[i]) / 32768.f / 8.f;
  for (float &coef : para.afCoef)
    coef = std::round(coef * 32768.f) / 32768.f;
  return para;
}

/// The whole signal in one block: one fused multiply-add per tap, oldest sample first, from silence.
Samples filtered_in_one_block(const EqPara &para, const Samples &signal) {
  const int32_t half = para.swHalfTapNum, taps = 2 * half - 1;
  Samples out(signal.size());
  for (int32_t j = 0; j < int32_t(signal.size()); ++j) {
    float sum = 0;
    for (int32_t k = 0; k < taps; ++k) {
      const int32_t at = j + k - (taps - 1);
      sum = std::fma(at < 0 ? 0.f : float(signal[size_t(at)]), para.afCoef[std::min(k, taps - 1 - k)], sum);
    }
    out[size_t(j)] = qv::to_sample(sum);
  }
  return out;
}

TEST(Eq, frames_of_any_length_give_the_samples_of_one_block) {
  for (const Layout &layout : all_layouts) {
    const Samples signal = noise_samples(7, size_t(layout.frame_len) * 3, 32767);
    for (int32_t half = 1; half <= EQ_MAX_HALF_TAPS; ++half) {
      const EqPara para = random_equaliser(half, layout.frame_len);
      ASSERT_EQ(Equaliser(para).filtered(signal), filtered_in_one_block(para, signal)) << layout << ", H " << half;
    }
  }
}

// c0, c1 .. the centre .. c1, c0 from the impulse's own position on, over the end of the frame; rounded half up.
TEST(Eq, impulse_shows_the_mirrored_response_across_a_frame_boundary) {
  EqPara para{.swEqEnable = -5, .swFrameLen = 128, .swHalfTapNum = 4, .afCoef = {0.125f, -0.25f, 0.0625f, 0.5f, 9.f}};
  Samples signal(256, 0), expected(256, 0);
  signal[125] = 1001;
  const int16_t response[] = {125, -250, 63, 501, 63, -250, 125};
  std::copy(std::begin(response), std::end(response), expected.begin() + 125);
  EXPECT_EQ(Equaliser(para).filtered(signal), expected);
}

TEST(Eq, half_length_out_of_range_passes_or_counts_as_the_longest) {
  const Samples signal = noise_samples(3, 640, 32767);
  for (const int32_t half : {0, -1, -32768})
    EXPECT_EQ(Equaliser(random_equaliser(half, 320)).filtered(signal), signal) << half;
  for (const int32_t half : {130, 257, 32767}) {
    EqPara para = random_equaliser(half, 320);
    const Samples found = Equaliser(para).filtered(signal);
    para.swHalfTapNum = EQ_MAX_HALF_TAPS;
    EXPECT_EQ(found, Equaliser(para).filtered(signal)) << half;
    EXPECT_NE(found, signal);
  }
}

TEST(Eq, clips_and_off_leaves_frame_and_memory_alone) {
  EqPara para{.swEqEnable = 1, .swFrameLen = 128, .swHalfTapNum = 2, .afCoef = {1.f, 1.f}};
  Samples rails(256, 32767);
  std::fill(rails.begin() + 128, rails.end(), int16_t(-32768));
  Samples clipped = Equaliser(para).filtered(rails);
  EXPECT_EQ(clipped[127], 32767);
  EXPECT_EQ(clipped[130], -32768);
  para.swEqEnable = 0;
  Equaliser off(para);
  EXPECT_EQ(off.filtered(rails), rails);
  EXPECT_EQ(std::count(off.state.pswHistory, off.state.pswHistory + 130, 0), 130);
}

} // namespace
