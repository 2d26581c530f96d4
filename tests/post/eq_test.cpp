// The equaliser as a filter of an endless signal, whatever its length and the frames.

#include "qvvoice/post/eq.h"

#include "dsp/sample.h"
#include "support.h"

namespace {

using namespace qv::test;

/// The signal, frame by frame, in place.
Samples filtered(const EqPara &para, Samples signal) {
  EqState state{};
  EQ_Init(&para, &state);
  for (size_t at = 0; at < signal.size(); at += size_t(para.swFrameLen))
    EQ_Process(&signal[at], &signal[at], &state);
  EQ_Destroy(&state);
  return signal;
}

EqPara random_equaliser(int32_t half, int32_t frame_len) {
  EqPara para{.swEqEnable = 1, .swFrameLen = int16_t(frame_len), .swHalfTapNum = int16_t(half), .afCoef = {}};
  const Samples words = noise_samples(uint32_t(half), EQ_MAX_HALF_TAPS, 4096);
  for (size_t i = 0; i < words.size(); ++i)
    para.afCoef[i] = float(words[i]) / 32768.f;
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
  for (const int32_t frame_len : {128, 160, 256, 320, 1, 31, 33, 100, 319}) {
    const Samples signal = noise_samples(7, size_t(frame_len * (3 + 300 / frame_len)), 32767);
    for (int32_t half = 1; half <= EQ_MAX_HALF_TAPS; ++half) {
      const EqPara para = random_equaliser(half, frame_len);
      ASSERT_EQ(filtered(para, signal), filtered_in_one_block(para, signal)) << frame_len << ", H " << half;
    }
  }
}

TEST(Eq, half_length_out_of_range_passes_or_counts_as_the_longest) {
  const Samples signal = noise_samples(3, 640, 32767);
  for (const int32_t half : {0, -1, -32768})
    EXPECT_EQ(filtered(random_equaliser(half, 320), signal), signal) << half;
  for (const int32_t half : {130, 257, 32767}) {
    EqPara para = random_equaliser(half, 320);
    const Samples found = filtered(para, signal);
    para.swHalfTapNum = EQ_MAX_HALF_TAPS;
    EXPECT_EQ(found, filtered(para, signal)) << half;
  }
}

} // namespace
