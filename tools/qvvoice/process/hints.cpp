#include "process/hints.h"

#include <algorithm>
#include <optional>

#include <fmt/format.h>

#include "signal/correlation.h"

namespace qv::tool::process {
namespace {

constexpr size_t opening_seconds = 60;
constexpr double silent_dbfs = -75;      // below the noise of any microphone; a converter's last bit is at -90
constexpr double most_clipped_ppm = 100; // one flat top of ten samples in six seconds, as diagnose has it
constexpr size_t least_windows = 3;      // with a clear delay
constexpr double least_lead = 0.001;     // s, of nine windows in ten

/// Time by which the microphone leads the reference, s, where several windows of the opening say so.
std::optional<double> lead(const Opening &mic, const Opening &ref) {
  const size_t length = std::min(mic.samples().size(), ref.samples().size());
  const DelaySearch search{.hop = 4};
  const auto points = delay_points(SampleView(mic.samples()).first(length), SampleView(ref.samples()).first(length),
                                   mic.rate(), search);
  if (points.size() < least_windows)
    return std::nullopt;
  std::vector<double> delays;
  std::ranges::transform(points, std::back_inserter(delays), &DelayPoint::delay);
  return quantile(delays, 0.9) < -least_lead ? std::optional(-median(delays)) : std::nullopt;
}

/// The command that tells more about both.
std::string diagnosis_of(const Input &mic, const Input &ref) {
  if (is_standard_stream(mic.source().path) || is_standard_stream(ref.source().path))
    return "record both, and let qvvoice diagnose look at them";
  if (mic.source().path == ref.source().path)
    return fmt::format("qvvoice diagnose --stereo {} tells more", mic.source().path);
  return fmt::format("qvvoice diagnose --mic {} --ref {} tells more", mic.source().path, ref.source().path);
}

} // namespace

Opening::Opening(int rate) : rate_(rate), longest_(opening_seconds * size_t(rate)) {}

void Opening::add(std::span<const int16_t> samples) {
  const auto part = samples.first(std::min(samples.size(), longest_ - samples_.size()));
  samples_.insert(samples_.end(), part.begin(), part.end());
}

std::vector<std::string> hints(const Input &mic, const Opening &mic_opening, const Input &ref,
                               const Opening &ref_opening) {
  std::vector<std::string> hints;
  for (const auto &[input, what] : {std::pair(&mic, "the microphone"), {&ref, "the reference"}}) {
    const LevelMeter &level = input->level();
    if (level.dbfs() < silent_dbfs)
      hints.push_back(fmt::format("{} is silent", what));
    else if (1e6 * double(level.clipped()) > most_clipped_ppm * double(level.count()))
      hints.push_back(fmt::format("{} clips", what));
  }
  if (const auto ahead = lead(mic_opening, ref_opening))
    hints.push_back(fmt::format("the microphone leads the reference by {:.1f} ms: are the two swapped?", 1e3 * *ahead));
  for (std::string &hint : hints)
    hint += fmt::format("{} {}", hint.ends_with('?') ? "" : ":", diagnosis_of(mic, ref));
  return hints;
}

} // namespace qv::tool::process
