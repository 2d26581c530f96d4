/// @file far_quarters.h  Far-end single talk in quarter seconds.
#pragma once

#include "measure/frames.h"

namespace qv::tool::measure {

inline constexpr double reached_db = 20;   ///< echo reduction that counts as working
inline constexpr double first_seconds = 3; ///< of a call, or after a change; then the canceller should have settled

inline double ratio_db(double above, double below) { return 10 * std::log10(above / below); }

/// Power sums over frames of 10 ms.
struct Sums {
  double mic = 0, out = 0; ///< `out` not below the noise of rounding
  double echo = 0;         ///< of the microphone where the echo is not known
  size_t count = 0;
};

/// Over frames begin .. end - 1 with a flag.
Sums sums_over(const Frames &frames, const std::vector<bool> &chosen, size_t begin, size_t end);

/// A quarter second of far-end single talk: at least half of it, and none of it with the near end.
struct FarQuarter {
  double time;                    ///< s, its beginning
  double spoken;                  ///< s of far-end single talk before it, from where the quarters are cut
  Sums sums;                      ///< over its frames of far-end single talk
  std::optional<double> residual; ///< power of the output beyond its background; nothing when that is not known
};

/// The quarters from frame `begin` on that end by frame `end`.
std::vector<FarQuarter> far_quarters(const Frames &frames, size_t begin, size_t end);

/// Far-end single talk from `time` on until two quarters in a row have 20 dB of microphone over output.
Value talk_until_reached(const std::vector<FarQuarter> &quarters, double time);

/// Mean over quarters of a ratio in dB: a burst counts for as long as it lasts, not for its energy. Quarters in which
/// it cannot be had are left out.
template <class RatioDb> Value mean_over(std::span<const FarQuarter> quarters, const RatioDb &ratio) {
  double sum = 0;
  size_t count = 0;
  for (const FarQuarter &quarter : quarters)
    if (const std::optional<double> one = ratio(quarter)) {
      sum += *one;
      ++count;
    }
  return count > 0 ? Value(sum / double(count)) : Value(Gap::absent);
}

/// Microphone over output.
inline std::optional<double> erle_db(const FarQuarter &quarter) { return ratio_db(quarter.sums.mic, quarter.sums.out); }

/// Echo over what the output has beyond its background.
inline std::optional<double> reduction_db(const FarQuarter &quarter) {
  if (!quarter.residual || quarter.sums.echo <= 0)
    return std::nullopt;
  return ratio_db(quarter.sums.echo / double(quarter.sums.count), *quarter.residual);
}

} // namespace qv::tool::measure
