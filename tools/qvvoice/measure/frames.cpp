#include "measure/frames.h"

namespace qv::tool::measure {
namespace {

constexpr double settling_seconds = 0.5;

std::optional<std::vector<double>> powers_of(const std::optional<Signal> &part, int rate) {
  return part ? std::optional(frame_powers(*part, rate)) : std::nullopt;
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
    : subject(of), mic(frame_powers(SampleView(of.mic), of.rate)), near(powers_of(of.near, of.rate)),
      echo(powers_of(of.echo, of.rate)), talk(talk_of(of)),
      delay(summarise(delay_points(SampleView(of.mic), SampleView(of.ref), of.rate, {}, progress))),
      far_heard(measure::far_heard(of, delay)), mic_level(active_level_db(SampleView(of.mic), of.rate)),
      ref_level(active_level_db(SampleView(of.ref), of.rate)), near_level(level_of(of.near, of.rate)),
      mic_near(mic_quality(*this, Talk::near)), mic_double(mic_quality(*this, Talk::both)) {}

Frames::Frames(const Known &known, const Output &from)
    : Known(known), output(from), out(frame_powers(from.plain, subject.rate)),
      sent(frame_powers(SampleView(from.sent), subject.rate)), out_noise(noise_power(out)) {}

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
  measure_delay(frames, results);
  measure_near(frames, results);
  measure_levels(frames, results);
  return results;
}

} // namespace qv::tool::measure
