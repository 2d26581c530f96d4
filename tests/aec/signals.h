// Deterministic signals and echo paths of the echo canceller's tests.
#pragma once

#include <array>
#include <complex>
#include <numeric>
#include <ranges>
#include <utility>

#include "config/fields.h"
#include "qvvoice/api/process.h"
#include "qvvoice/qvvoice.h"
#include "talk.h"

namespace qv::test {

inline size_t samples(const Layout &layout, double seconds) {
  return size_t(int32_t(seconds * layout.rate) / layout.frame_len * layout.frame_len);
}

// The transforms and the filter bank of a layout, and a call with the default parameters.
inline void start(const Layout &layout) {
  const config::Image image = config::default_image(layout.rate);
  ASSERT_EQ(QV_VOICE_InitImage(image.data(), layout.rate, layout.frame_len), QV_VOICE_OK);
}

inline Signal reference(bool speech, double seconds, const Layout &layout) {
  const size_t count = samples(layout, seconds);
  return speech ? talk(count, layout.rate, 3000, 11) : white(count, 3000, 12);
}

// Echo at -6 dB over a decaying random response of one and a half frames.
inline Signal echo_of(const Signal &x, const Layout &layout, uint32_t seed = 3) {
  return Room(layout.rate, 0, 0.5f, seed, 1.5 * layout.frame_len / layout.rate).echo(x);
}

using Values = std::vector<double>;

/// A bin of a packed spectrum.
inline std::complex<double> bin(std::span<const float> packed, size_t k) {
  const size_t f = packed.size();
  return k == 0 || 2 * k == f ? std::complex<double>(packed[k ? f - 1 : 0])
                              : std::complex<double>(packed[2 * k - 1], packed[2 * k]);
}

/// The adaptive filter by itself.
struct Filter {
  explicit Filter(const Layout &layout, int32_t partitions = 2) : n(size_t(layout.frame_len)) {
    start(layout);
    const AecMdfPara para = {layout.frame_len, partitions * layout.frame_len, layout.rate};
    EXPECT_EQ(AEC_MdfInit(&para, &st), 0);
  }
  ~Filter() { EXPECT_EQ(AEC_MdfDestory(&st), 0); }

  Samples run(std::span<const int16_t> mic, std::span<const int16_t> ref) {
    Samples out(mic.size());
    for (size_t at = 0; at < mic.size(); at += n)
      AEC_MdfProcess(&mic[at], &ref[at], &out[at], &st);
    return out;
  }

  const size_t n;
  AecMdfState st;
};

using Memories = std::vector<std::span<float>>; // arrays of a state record
inline bool all_finite(const Memories &memories) {
  return std::ranges::all_of(memories | std::views::join, [](float x) { return std::isfinite(x); });
}

/// A suppressor by itself, by coherence or by echo ratios.
struct Suppressor {
  Suppressor(const Layout &layout, bool coh, bool ser, float exponent = 1,
             std::array<float, 8> divisors = {1, 1, 1, 1, 1, 1, 1, 1}) {
    start(layout);
    AecNlpPara para = {layout.frame_len, layout.bands, coh, ser, exponent, {}};
    std::ranges::copy(divisors, para.afBandSupFactor);
    AEC_NlpInit(&para, &st);
  }
  ~Suppressor() { AEC_NlpDestory(&st); }
  AecNlpState st;
};

} // namespace qv::test
