/// @file layout.h  The rates and frame lengths that are served, and what follows from them.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include "qvvoice/dsp/layout.h"

namespace qv {

struct Layout {
  int32_t rate;      ///< Hz
  int32_t frame_len; ///< samples
};

inline constexpr int32_t narrow_rate = 8000, wide_rate = 16000; ///< Hz
inline constexpr auto served_rates = std::to_array({narrow_rate, wide_rate});
inline constexpr auto served_frame_ms = std::to_array<int32_t>({16, 20});

constexpr int32_t frame_length(int32_t rate, int32_t frame_ms) { return rate / 1000 * frame_ms; }

inline constexpr auto layouts = std::to_array<Layout>({
    {narrow_rate, frame_length(narrow_rate, 16)},
    {narrow_rate, frame_length(narrow_rate, 20)},
    {wide_rate, frame_length(wide_rate, 16)},
    {wide_rate, frame_length(wide_rate, 20)},
});
inline constexpr int32_t shortest_frame = layouts[0].frame_len;
inline constexpr int32_t longest_narrow_frame = layouts[1].frame_len;
static_assert(layouts.back().frame_len == QV_MAX_FRAME);

constexpr bool rate_served(int64_t rate) { return std::ranges::count(served_rates, rate) > 0; }

constexpr bool layout_served(int32_t rate, int32_t frame_len) {
  return std::ranges::any_of(layouts, [&](const Layout &l) { return l.rate == rate && l.frame_len == frame_len; });
}

constexpr int32_t band_count(int32_t rate) { return rate == narrow_rate ? 24 : QV_MAX_BANDS; }
constexpr int32_t group_count(int32_t rate) { return band_count(rate) / QV_GROUP_BANDS; }

inline constexpr int32_t filter_frames = 2;     ///< echo tail of the adaptive filter, in frames
inline constexpr int32_t blocks_per_frame = 2;  ///< steps of the delay estimator in a frame
inline constexpr int32_t delay_candidates = 32; ///< delays that the estimator compares: 0 .. 31 blocks

} // namespace qv
