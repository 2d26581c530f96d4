#include "state_space/background.h"

#include <cmath>

namespace qv::state_space {

namespace {

constexpr float prior_snr = 4;          // of what is not background, power
constexpr float freedom = 0.6f;         // degrees of freedom per bin of an overlapped Hann-windowed spectrum, over two
constexpr float echo_share = 0.3f;      // of the background: above it the band waits
constexpr float surely_present = 0.98f; // so long at a time nobody talks: the background must have risen
constexpr int32_t starting_frames = 10;
constexpr float starting_weight = 0.3f;
constexpr float smooth_weight = 0.3f;
constexpr float unheard_echo = 0.1f; // of a band's power: above it the minima wait
constexpr float no_echo = 0.01f;     // the same at the start, when the first echo may be louder than is expected
constexpr float most_above = 4;      // of the estimate over all that is heard lately: more cannot be background
constexpr float steady = 0.4f;       // minimum over mean of a window: speech is below a fifth, noise above half
constexpr float window_ms = 1000;
constexpr float typical_reduction = 0.02f; // -17 dB: what the noise reducer takes off steady noise
constexpr float pause_weight = 0.1f;
constexpr float nothing_yet = 1e20f;

/// Probability that a band holds more than background. @param ratio  its power over the background's
float probability_of_more(float ratio, float half_freedom) {
  const double exponent =
      half_freedom * (std::log(1 + double(prior_snr)) - ratio * double(prior_snr) / (1 + prior_snr));
  return float(1 / (1 + std::exp(std::clamp(exponent, -60.0, 60.0))));
}

void start_with(float power, bool echo_heard, int32_t b, Background &bg) {
  float &estimate = bg.power[b];
  if (echo_heard)
    estimate = bg.floor;
  else
    estimate = std::max(bg.floor, bg.frames <= 2 ? power : estimate + starting_weight * (power - estimate));
}

void follow(float power, int32_t b, Background &bg) {
  float &estimate = bg.power[b];
  float more = probability_of_more(power / estimate, freedom * float(bg.bands.width(b)));
  bg.presence[b] += 0.05f * (more - bg.presence[b]);
  if (bg.presence[b] > surely_present)
    more = std::min(more, surely_present);
  estimate = std::max(bg.floor, estimate + (1 - bg.keep) * (1 - more) * (power - estimate));
}

/// A power that hardly moves is background, however much it is above what was.
void take_steady_minimum(int32_t b, Background &bg) {
  const bool long_enough = 2 * bg.seen[b] > bg.window;
  if (long_enough && bg.low[b] * float(bg.seen[b]) > steady * bg.sum[b])
    if (const float minimum = std::min(bg.low[b], bg.low_before[b]); minimum < nothing_yet)
      bg.power[b] = std::max(bg.power[b], minimum);
  bg.low_before[b] = bg.low[b];
  bg.low[b] = nothing_yet;
  bg.sum[b] = 0;
  bg.seen[b] = 0;
}

float next_random(uint32_t &state) { // Numerical Recipes' generator, its upper bits, -1..1
  state = state * 1664525u + 1013904223u;
  return float(int32_t(state >> 8) - (1 << 23)) / float(1 << 23);
}

} // namespace

void start(const Shape &shape, bool noise_reduced, uint32_t seed, Background &bg) {
  bg = {};
  bg.bands = bands_of(shape);
  bg.window = shape.frames(window_ms);
  bg.floor = float(shape.n);
  bg.keep = shape.keep(0.9);
  bg.random = seed;
  std::fill_n(bg.power, most_bands, bg.floor);
  std::fill_n(bg.low, most_bands, nothing_yet);
  std::fill_n(bg.low_before, most_bands, nothing_yet);
  std::fill_n(bg.sent, most_bands, noise_reduced ? typical_reduction : 1);
}

void track(const float *error, const float *echo, Background &bg) {
  bg.frames = std::min(bg.frames + 1, 1 << 30);
  for (int32_t b = 0; b < bg.bands.count; ++b) {
    if (bg.frames < starting_frames)
      start_with(error[b], echo[b] > no_echo * error[b], b, bg);
    else if (echo[b] < echo_share * bg.power[b])
      follow(error[b], b, bg);
    bg.recent[b] += smooth_weight * (error[b] - bg.recent[b]);
    bg.power[b] = std::max(bg.floor, std::min(bg.power[b], most_above * bg.recent[b]));
    if (echo[b] < unheard_echo * error[b]) {
      bg.smooth[b] += smooth_weight * (error[b] - bg.smooth[b]);
      bg.low[b] = std::min(bg.low[b], bg.smooth[b]);
      bg.sum[b] += bg.smooth[b];
      ++bg.seen[b];
    }
    if (bg.frames % bg.window == 0)
      take_steady_minimum(b, bg);
  }
}

void learn_pause(const float *sent, Background &bg) {
  if (bg.frames < bg.window)
    return; // the noise reducer has not found the noise yet
  for (int32_t b = 0; b < bg.bands.count; ++b)
    bg.sent[b] += pause_weight * (std::min(1.f, sent[b] / bg.power[b]) - bg.sent[b]);
}

void fill(float share, const SplitSpectrum &spectrum, Background &bg) {
  // Even numbers between -a and a have the mean square a^2 / 3, two of them a bin's; what the synthesis window takes
  // is half.
  constexpr float evenly = 1.5f, synthesis = 2;
  for (int32_t b = 0; b < bg.bands.count; ++b) {
    const float amplitude = share * std::sqrt(evenly * synthesis * bg.power[b] * bg.sent[b]);
    for (int32_t k = bg.bands.edge[b]; k < bg.bands.edge[b + 1]; ++k) {
      spectrum.re[k] += amplitude * next_random(bg.random);
      spectrum.im[k] += amplitude * next_random(bg.random);
    }
  }
}

} // namespace qv::state_space
