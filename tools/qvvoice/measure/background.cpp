#include "measure/background.h"

#include <algorithm>
#include <numeric>
#include <span>

namespace qv::tool::measure {
namespace {

constexpr size_t reach = 2;              ///< frames on either side that a third octave's window takes in
constexpr double settling_seconds = 0.5; ///< of the noise reducer
constexpr double first_seconds = 3;      ///< of a call; then the canceller should have settled
constexpr double remains = 0.1;          ///< power of the talk over that of the noise that leaves a frame quiet
constexpr size_t least_frames = 50;      ///< 0.5 s
constexpr double stands_out = 3;         ///< spreads
constexpr double judged_from = 300, judged_to = 3200, judged_to_wide = 6400; ///< Hz, centres of third octaves

double sum_of(const BandPowers &bands) { return std::accumulate(bands.begin(), bands.end(), 0.0); }

size_t count_of(const std::vector<bool> &frames) { return size_t(std::ranges::count(frames, true)); }

/// Width of a band, Hz.
double width_of(double centre) { return centre * (std::exp2(1.0 / 6) - std::exp2(-1.0 / 6)); }

/// Standard deviation of the mean power of steady Gaussian noise over a quarter second: 1 / sqrt(width * time).
double steady_spread(double power, double centre) {
  return power / std::sqrt(width_of(centre) * double(quarter_frames) * frame_seconds);
}

/// Root mean square over all quarter seconds of quiet frames, which begin every 50 ms, of `excess(mean of bands)`.
template <class Excess>
double spread_of(const std::vector<BandPowers> &bands, const std::vector<bool> &quiet, const Excess &excess) {
  double squares = 0;
  size_t count = 0;
  for (size_t begin = 0; begin + quarter_frames <= quiet.size(); begin += 5) {
    const auto from = quiet.begin() + std::ptrdiff_t(begin);
    if (!std::all_of(from, from + quarter_frames, [](bool one) { return one; }))
      continue;
    const double one = excess(*mean_of(bands, quiet, begin, begin + quarter_frames));
    squares += one * one;
    ++count;
  }
  return count > 0 ? std::sqrt(squares / double(count)) : 0;
}

} // namespace

BackgroundFrames background_frames(const std::vector<Talk> &talk, const Parts &parts) {
  BackgroundFrames frames{std::vector<bool>(talk.size()), std::vector<bool>(talk.size())};
  for (size_t i = reach; i + reach < talk.size(); ++i) {
    const size_t begin = i - reach;
    const std::span about = std::span(talk).subspan(begin, 2 * reach + 1);
    const auto power = [&](const std::optional<std::vector<double>> &part) {
      const auto from = part ? part->begin() + std::ptrdiff_t(begin) : std::vector<double>::const_iterator();
      return part ? std::accumulate(from, from + std::ptrdiff_t(about.size()), 0.0) / double(about.size()) : 0;
    };
    const double most = parts.noise && *parts.noise >= rounding_noise ? remains * *parts.noise : HUGE_VAL;
    const double near = power(parts.near);
    frames.quiet[i] = double(i) * frame_seconds >= settling_seconds && near + power(parts.echo) <= most &&
                      std::ranges::all_of(about, [](Talk one) { return one == Talk::silence; });
    frames.far[i] = talk[i] == Talk::far && near <= most &&
                    std::ranges::all_of(about, [](Talk one) { return one == Talk::silence || one == Talk::far; });
  }
  return frames;
}

std::optional<BandPowers> mean_of(const std::vector<BandPowers> &bands, const std::vector<bool> &chosen, size_t begin,
                                  size_t end) {
  std::optional<BandPowers> sum;
  size_t count = 0;
  for (size_t i = begin; i < end; ++i)
    if (chosen[i]) {
      if (!sum)
        sum.emplace(bands[i].size());
      std::ranges::transform(*sum, bands[i], sum->begin(), std::plus());
      ++count;
    }
  for (size_t band = 0; sum && band < sum->size(); ++band)
    (*sum)[band] /= double(count);
  return sum;
}

std::optional<Background> background_of(const std::vector<BandPowers> &bands, const std::vector<bool> &quiet,
                                        int rate) {
  if (count_of(quiet) < least_frames)
    return std::nullopt;
  Background background;
  background.level = *mean_of(bands, quiet, 0, quiet.size());
  background.total = sum_of(background.level);
  const std::vector<double> centres = third_octave_centres(rate);
  double steady = 0;
  for (size_t band = 0; band < centres.size(); ++band) {
    const double level = background.level[band], least = steady_spread(level, centres[band]);
    const double found = spread_of(bands, quiet, [&](const BandPowers &mean) { return mean[band] - level; });
    background.spread.push_back(std::max(found, least));
    steady += least * least;
  }
  const double found = spread_of(bands, quiet, [&](const BandPowers &mean) { return sum_of(mean) - background.total; });
  background.total_spread = std::max(found, std::sqrt(steady));
  return background;
}

double residual_power(const Background &background, const BandPowers &mean, size_t frames) {
  const double shorter = std::sqrt(double(quarter_frames) / double(frames)), power = sum_of(mean);
  double outstanding = 0;
  for (size_t band = 0; band < background.level.size(); ++band) {
    const double excess = mean[band] - background.level[band];
    if (excess > stands_out * shorter * background.spread[band])
      outstanding += excess;
  }
  const double least = std::min(power, shorter * background.total_spread);
  return std::max({outstanding, power - background.total, least, rounding_noise});
}

namespace {

/// Median over quarter seconds, at least half of which has the flag, of the power.
double median_power(const std::vector<BandPowers> &bands, const std::vector<bool> &chosen) {
  std::vector<double> powers;
  for (size_t begin = 0; begin + quarter_frames <= chosen.size(); begin += quarter_frames) {
    const auto from = chosen.begin() + std::ptrdiff_t(begin);
    if (2 * size_t(std::count(from, from + quarter_frames, true)) >= quarter_frames)
      powers.push_back(sum_of(*mean_of(bands, chosen, begin, begin + quarter_frames)));
  }
  return powers.empty() ? 0 : median(powers);
}

} // namespace

BackgroundStep background_step(const std::vector<BandPowers> &bands, const BackgroundFrames &frames, int rate) {
  std::vector<bool> settled = frames.far;
  std::fill_n(settled.begin(), std::min(settled.size(), size_t(first_seconds / frame_seconds)), false);
  const auto before = mean_of(bands, frames.quiet, 0, frames.quiet.size());
  const auto during = mean_of(bands, settled, 0, settled.size());
  if (count_of(frames.quiet) < least_frames || count_of(settled) < least_frames || sum_of(*before) < least_background)
    return {Gap::absent, Gap::absent, Gap::absent};
  const auto against = [&](double power) { return Value(to_db(std::max(power, rounding_noise) / sum_of(*before))); };
  BackgroundStep step{against(sum_of(*during)), against(median_power(bands, settled)), Gap::absent};
  const std::vector<double> centres = third_octave_centres(rate);
  for (size_t band = 0; band < centres.size(); ++band) {
    const double share = width_of(centres[band]) / (rate / 2.0); // of what is white
    if (centres[band] < judged_from || centres[band] > (rate < 16000 ? judged_to : judged_to_wide) ||
        (*before)[band] < least_background * share)
      continue;
    const double one = std::abs(*to_db(std::max((*during)[band], rounding_noise * share) / (*before)[band]));
    step.band = step.band.known() ? std::max(step.band.number(), one) : one;
  }
  return step;
}

} // namespace qv::tool::measure
