#include "state_space/change.h"

namespace qv::state_space {

namespace {

constexpr int32_t first_band = 5;  // from 400 Hz on: below, every voice looks alike
constexpr float quiet = 3;         // per bin and sample of N: keeps the logarithm of silence from moving
constexpr float long_term = 0.01f; // weight of a frame
constexpr float short_term = 0.2f;
constexpr float no_echo_peak = 4;   // highest lag over rms where there is no echo, median
constexpr float lag_weight = 0.35f; // of a lag's height beside the likeness: least overlap of changes and double talk
constexpr float highest_peak = 10;
constexpr float telling = 1;           // score that double talk exceeds in 1 % of its frames, changes in 70 %
constexpr float lag_stands_out = 5.2f; // double talk: 1.5 % of its frames
constexpr int32_t same_lag = 6;        // samples
constexpr float persistence_keep = 0.95f, persistent = 10;
constexpr float persistent_score = 1.5f;
constexpr int32_t enough = 2, most_suspicion = 3; // frames

/// How alike error and echo are in what differs from their long-term shapes.
void compare(const Bands &bands, const float *error, const float *echo, float floor, ChangeDetector &d) {
  d.frames = std::min(d.frames + 1, 1 << 30);
  const float weight = std::max(long_term, 1 / float(d.frames));
  float cross = 0, error_square = 0, echo_square = 0;
  for (int32_t b = first_band; b < bands.count; ++b) {
    const auto level = [&](float power) { return float(std::log10(double(power) * bands.width(b) + floor)); };
    const float e = level(error[b]), y = level(echo[b]);
    d.error_mean[b] += weight * (e - d.error_mean[b]);
    d.echo_mean[b] += weight * (y - d.echo_mean[b]);
    const float e_differs = e - d.error_mean[b], y_differs = y - d.echo_mean[b];
    cross += e_differs * y_differs;
    error_square += e_differs * e_differs;
    echo_square += y_differs * y_differs;
  }
  d.cross += short_term * (cross - d.cross);
  d.error_square += short_term * (error_square - d.error_square);
  d.echo_square += short_term * (echo_square - d.echo_square);
  d.likeness = d.cross / std::sqrt(d.error_square * d.echo_square + 1e-9f);
}

} // namespace

void detect(const Bands &bands, const ChangeInput &in, const Arrival &arrival, ChangeDetector &d) {
  if (in.echo_heard)
    compare(bands, in.error, in.echo, quiet * float(arrival.n), d);
  const bool one_lag = std::abs(arrival.lag - d.last_lag) <= same_lag && arrival.peak > lag_stands_out;
  if (in.far_heard)
    d.persistence = persistence_keep * d.persistence + float(one_lag);
  d.last_lag = arrival.lag;

  d.score = 0;
  if (in.far_heard && in.echo_heard)
    d.score = d.likeness + lag_weight * (std::min(arrival.peak, highest_peak) - no_echo_peak);
  if (in.far_heard && d.persistence > persistent && arrival.peak > lag_stands_out)
    d.score = std::max(d.score, persistent_score);
  d.suspicion =
      in.stands_out && d.score > telling ? std::min(d.suspicion + 1, most_suspicion) : std::max(d.suspicion - 1, 0);
  d.waiting = std::max(d.waiting - 1, 0);
  d.changed = d.suspicion >= enough && d.waiting == 0;
  if (d.changed)
    d.waiting = d.wait;
}

} // namespace qv::state_space
