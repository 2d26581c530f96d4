#include "measure/frames.h"

namespace qv::tool::measure {
namespace {

constexpr double settling_seconds = 0.5;

std::optional<std::vector<double>> powers_of(const std::optional<Signal> &part, int rate) {
  return part ? std::optional(frame_powers(*part, rate)) : std::nullopt;
}

} // namespace

Frames::Frames(const Subject &of, const Output &from)
    : subject(of), output(from), mic(frame_powers(to_signal(of.mic), of.rate)), out(frame_powers(from.plain, of.rate)),
      sent(frame_powers(to_signal(from.sent), of.rate)), near(powers_of(of.near, of.rate)),
      echo(powers_of(of.echo, of.rate)), talk(talk_of(of)), far_heard(measure::far_heard(of)),
      out_noise(noise_power(out)) {}

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

Results measure(const Subject &subject, const Output &output) {
  const Frames frames(subject, output);
  Results results;
  measure_echo(frames, results);
  measure_delay(frames, results);
  measure_near(frames, results);
  measure_levels(frames, results);
  return results;
}

} // namespace qv::tool::measure
