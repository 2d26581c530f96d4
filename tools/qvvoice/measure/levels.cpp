// Noise, levels, clipping and speed.

#include <algorithm>
#include <numeric>

#include "measure/frames.h"

namespace qv::tool::measure {
namespace {

Value clipped_percent(const std::vector<int16_t> &samples) {
  const auto at_end = [](int16_t sample) { return sample == INT16_MAX || sample == INT16_MIN; };
  return samples.empty() ? Value(Gap::absent)
                         : Value(100.0 * double(std::ranges::count_if(samples, at_end)) / double(samples.size()));
}

Value silent_percent(const std::vector<double> &powers) {
  return powers.empty() ? Value(Gap::absent)
                        : Value(100.0 * double(std::ranges::count(powers, 0.0)) / double(powers.size()));
}

/// Mean in dB over the library's frames in which the near end talks; over all when it never does or is unknown.
Value agc_gain(const Frames &frames) {
  std::vector<double> near, all;
  for (size_t k = 0; k < frames.output.trace.size(); ++k) {
    const double gain = 20 * std::log10(std::max(double(frames.output.trace[k].tx_agc_gain), 1e-6));
    const auto i = size_t(double(k) * frames.output.frame_len / frames.subject.rate / frame_seconds);
    all.push_back(gain);
    if (frames.talk && i < frames.talk->size() && ((*frames.talk)[i] == Talk::near || (*frames.talk)[i] == Talk::both))
      near.push_back(gain);
  }
  const std::vector<double> &chosen = near.empty() ? all : near;
  return chosen.empty() ? Value() : Value(std::accumulate(chosen.begin(), chosen.end(), 0.0) / double(chosen.size()));
}

void measure_noise(const Frames &frames, Results &results) {
  if (!frames.talk)
    return;
  const auto before = frames.noise_power(frames.mic);
  if (!before) {
    results.noise_attenuation_db = results.output_noise_dbfs = Gap::absent;
    return;
  }
  const double after = std::max(*frames.out_noise, rounding_noise);
  results.output_noise_dbfs = to_db(after);
  results.noise_attenuation_db = to_db(*before / after);
}

/// Over the noise of rounding where there is none.
Value noise_snr(const Frames &frames) {
  if (!frames.noise)
    return {};
  const auto talker = frames.near_level ? frames.near_level : frames.echo_level;
  return talker ? Value(*talker - *to_db(std::max(*frames.noise, rounding_noise))) : Value(Gap::absent);
}

void measure_background(const Frames &frames, Results &results) {
  if (!frames.talk)
    return;
  const BackgroundStep step = background_step(frames.out_bands, frames.background_frames, frames.subject.rate);
  results.background_step_db = step.level;
  results.background_step_median_db = step.median;
  results.background_band_step_db = step.band;
  results.noise_step_db = frames.noise_step.level;
  results.noise_band_step_db = frames.noise_step.band;
}

void measure_speed(const Output &output, int rate, Results &results) {
  if (output.frame_seconds.empty())
    return;
  const std::vector<double> &taken = output.frame_seconds;
  const double frame = double(output.frame_len) / rate;
  results.real_time_factor = std::accumulate(taken.begin(), taken.end(), 0.0) / (frame * double(taken.size()));
  results.worst_frame_percent = 100 * *std::ranges::max_element(taken) / frame;
}

} // namespace

void measure_levels(const Frames &frames, Results &results) {
  const Subject &subject = frames.subject;
  const int rate = subject.rate;
  results.digital_silence_percent = silent_percent(frames.sent);
  results.mic_level_dbfs = frames.mic_level;
  results.ref_level_dbfs = frames.ref_level;
  results.out_level_dbfs = active_level_db(SampleView(frames.output.sent), rate);
  results.mic_clipped_percent = clipped_percent(subject.mic);
  results.ref_clipped_percent = clipped_percent(subject.ref);
  results.out_clipped_percent = clipped_percent(frames.output.sent);
  results.agc_gain_db = agc_gain(frames);
  results.noise_snr_db = noise_snr(frames);
  measure_noise(frames, results);
  measure_background(frames, results);
  measure_speed(frames.output, rate, results);
}

} // namespace qv::tool::measure
