/// @file rate_converter.h  Mono sample rate conversion by a fixed ratio: nothing is allocated in a block, and how many
/// samples come out, and how late, is known exactly. `count` samples altogether give ceil(count * to / from), so those
/// of a converter and of its opposite behind it never run short of what went in.
#pragma once

#include <vector>

namespace qv::pipewire {

/// Polyphase windowed-sinc filter: flat up to 0.85 of the lower Nyquist frequency, 80 dB down above it.
class RateConverter {
public:
  /// @param from,to     Hz; equal rates pass samples as they are
  /// @param most_count  samples of the longest block
  RateConverter(int from, int to, int most_count);

  /// @param in   [count]
  /// @param out  [most_out()] written from the start
  /// @return samples written
  int process(const float *in, int count, float *out) noexcept;

  /// Most samples that a block gives.
  int most_out() const { return most_out_; }

  /// Delay in seconds.
  double delay() const { return delay_; }

  /// Forgets what was heard.
  void reset() noexcept;

private:
  int up_, down_;            ///< to / from in lowest terms
  int taps_;                 ///< per phase, in input samples
  int most_out_;             ///< samples
  double delay_;             ///< s
  std::vector<float> phase_; ///< [up_][taps_] newest sample's tap last
  std::vector<float> heard_; ///< [taps_ - 1 + most_count] the samples before the block, and the block
  int next_ = 0;             ///< next output's time behind the block's first sample, in 1/up_ input samples
};

} // namespace qv::pipewire
