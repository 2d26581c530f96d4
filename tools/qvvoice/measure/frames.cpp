#include "measure/frames.h"

#include <algorithm>

namespace qv::tool::measure {
namespace {

constexpr double settling_seconds = 0.5;

std::optional<std::vector<double>> powers_of(const std::optional<Signal> &part, int rate) {
  return part ? std::optional(frame_powers(*part, rate)) : std::nullopt;
}

/// While the microphone's stream is not silent.
std::optional<double> noise_power_of(const Subject &subject) {
  if (!subject.noise)
    return std::nullopt;
  const std::vector<double> powers = frame_powers(*subject.noise, subject.rate);
  const std::vector<bool> muted = flags(subject.truth ? subject.truth->muted : std::vector<Interval>(), powers.size());
  double sum = 0;
  for (size_t i = 0; i < powers.size(); ++i)
    sum += muted[i] ? 0 : powers[i];
  return sum / double(std::max<std::ptrdiff_t>(std::ranges::count(muted, false), 1));
}

std::vector<bool> either(std::vector<bool> a, const std::vector<bool> &b) {
  for (size_t i = 0; i < a.size(); ++i)
    a[i] = a[i] || b[i];
  return a;
}

BackgroundStep noise_step_of(const Known &known) {
  if (!known.talk || !known.subject.noise)
    return {};
  const BackgroundFrames &frames = known.background_frames;
  return background_step(third_octaves(*known.subject.noise, either(frames.quiet, frames.far), known.subject.rate),
                         frames, known.subject.rate);
}

/// Of the frames in which the background and the residual echo are looked at.
std::vector<BandPowers> bands_of(const Frames &frames) {
  if (!frames.talk)
    return {};
  const std::vector<bool> wanted = either(frames.background_frames.far, frames.background_frames.quiet);
  return third_octaves(frames.output.plain, wanted, frames.subject.rate);
}

std::optional<Background> out_background(const Frames &frames) {
  if (!frames.talk)
    return std::nullopt;
  const size_t bands = third_octave_centres(frames.subject.rate).size();
  if (frames.noise && *frames.noise < rounding_noise) // silence, as far as the recording can tell
    return Background{BandPowers(bands), BandPowers(bands), 0, 0};
  return background_of(frames.out_bands, frames.background_frames.quiet, frames.subject.rate);
}

std::optional<double> level_of(const std::optional<Signal> &part, int rate) {
  return part ? active_level_db(*part, rate) : std::nullopt;
}

/// Of the microphone, in the frames of one class.
Quality mic_quality(const Known &known, Talk which) {
  const Subject &subject = known.subject;
  if (!known.talk || !subject.near)
    return {};
  const std::vector<bool> chosen = frames_of(*known.talk, which);
  return quality(joined(*subject.near, chosen, subject.rate), joined(SampleView(subject.mic), chosen, subject.rate),
                 subject.rate);
}

} // namespace

Known::Known(const Subject &of, const ProgressFn &progress)
    : Parts{powers_of(of.near, of.rate), powers_of(of.echo, of.rate), noise_power_of(of)}, subject(of),
      mic(frame_powers(SampleView(of.mic), of.rate)), talk(talk_of(of)),
      delay(summarise(delay_points(SampleView(of.mic), SampleView(of.ref), of.rate, {}, progress))),
      far_heard(measure::far_heard(of, delay)), mic_level(active_level_db(SampleView(of.mic), of.rate)),
      ref_level(active_level_db(SampleView(of.ref), of.rate)), near_level(level_of(of.near, of.rate)),
      echo_level(level_of(of.echo, of.rate)), mic_near(mic_quality(*this, Talk::near)),
      mic_double(mic_quality(*this, Talk::both)),
      background_frames(talk ? measure::background_frames(*talk, *this) : BackgroundFrames()),
      noise_step(noise_step_of(*this)) {}

Frames::Frames(const Known &known, const Output &from)
    : Known(known), output(from), out(frame_powers(from.plain, subject.rate)),
      sent(frame_powers(SampleView(from.sent), subject.rate)), out_noise(noise_power(out)), out_bands(bands_of(*this)),
      background(out_background(*this)) {}

std::optional<double> Frames::noise_power(const std::vector<double> &powers) const {
  double sum = 0;
  size_t count = 0;
  for (auto i = size_t(settling_seconds / frame_seconds); talk && i < talk->size(); ++i)
    if ((*talk)[i] == Talk::silence) {
      sum += powers[i];
      ++count;
    }
  return count > 0 ? std::optional(sum / double(count)) : std::nullopt;
}

Results measure(const Known &known, const Output &output) {
  const Frames frames(known, output);
  Results results;
  measure_echo(frames, results);
  measure_changes(frames, results);
  measure_delay(frames, results);
  measure_near(frames, results);
  measure_levels(frames, results);
  return results;
}

} // namespace qv::tool::measure
