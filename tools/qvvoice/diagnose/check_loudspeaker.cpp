// What the loudspeaker makes of the reference that no linear filter can follow.

#include "diagnose/checks.h"
#include "diagnose/talk.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace qv::tool::diagnose {
namespace {

constexpr size_t blocks_per_part = 62; // about two seconds

/// Cross-spectra of a part of the recording: reference x, its cube z, and the microphone y.
struct CubeSpectra {
  std::vector<double> x, y, z;
  std::vector<std::complex<double>> xy, xz, zy;

  explicit CubeSpectra(size_t bins) : x(bins), y(bins), z(bins), xy(bins), xz(bins), zy(bins) {}

  void add(const Spectrum &ref, const Spectrum &cube, const Spectrum &mic) {
    for (size_t k = 0; k < x.size(); ++k) {
      const std::complex<double> r(ref[k]), c(cube[k]), m(mic[k]);
      x[k] += std::norm(r);
      y[k] += std::norm(m);
      z[k] += std::norm(c);
      xy[k] += m * std::conj(r);
      xz[k] += c * std::conj(r);
      zy[k] += m * std::conj(c);
    }
  }
};

struct Shares {
  double linear = 0, cubic = 0; ///< power that follows the reference, and its cube beyond that
};

/// Coherence of y with x, and partial coherence of y with z (Bendat and Piersol 2010, chapter 7); what chance
/// gives over so many blocks is taken off.
Shares shares_of(const CubeSpectra &s) {
  constexpr double empty = 1e-5; // of the strongest bin's power: what the reference lacks is not distortion
  const double strongest = *std::ranges::max_element(s.x);
  Shares shares;
  for (size_t k = 1; k < s.x.size(); ++k) {
    if (s.x[k] <= empty * strongest)
      continue;
    const double linear = std::norm(s.xy[k]) / s.x[k], left = std::max(s.y[k] - linear, 0.0);
    const double cube = s.z[k] - std::norm(s.xz[k]) / s.x[k];
    const std::complex<double> follows = s.zy[k] - std::conj(s.xz[k]) * s.xy[k] / s.x[k];
    const double by_chance = 2.0 / double(blocks_per_part); // half the blocks are independent
    shares.linear += linear;
    if (cube > 1e-6 * s.z[k])
      shares.cubic += std::norm(follows) / cube - by_chance * left;
  }
  return shares;
}

} // namespace

Check check_distortion(const Evidence &evidence) {
  constexpr double most_db = -20;     // linear paths stay below, speakers 10 dB beyond their limit reach -18
  constexpr size_t fewest = 3;        // parts
  constexpr double mostly_echo = 0.6; // of the power of a part
  Check check{"distortion", "Distortion of the loudspeaker"};
  check.limit = fmt::format("what follows the cube of the reference {:.0f} dB below the echo", -most_db);
  check.numbers["cubic_db"] = nullptr;
  const int rate = evidence.setup.rate;
  const BlockAnalyser analyser(rate);
  const Signal &ref = evidence.alignment.ref;
  Signal cube(ref.size());
  std::ranges::transform(ref, cube.begin(), [](double value) { return value * value * value; });
  const size_t length = block_length(rate), hop = length / 2;
  Shares all;
  size_t parts = 0;
  for (size_t part = 0; evidence.echo.found && (part + 1) * blocks_per_part <= evidence.echo.blocks.size(); ++part) {
    CubeSpectra spectra(length / 2 + 1);
    for (size_t b = part * blocks_per_part; b < (part + 1) * blocks_per_part; ++b) {
      const auto begin = std::ptrdiff_t(b * hop);
      const auto behind =
          std::ptrdiff_t(std::lround(nearest_delay(evidence.delay.points, evidence.echo.blocks[b].time) * rate));
      spectra.add(analyser.spectrum(ref, begin - behind), analyser.spectrum(cube, begin - behind),
                  analyser.spectrum(evidence.mic, begin));
    }
    const Shares shares = shares_of(spectra);
    double mic = 0;
    for (size_t k = 1; k < spectra.y.size(); ++k)
      mic += spectra.y[k];
    if (shares.linear < mostly_echo * mic)
      continue;
    all.linear += shares.linear;
    all.cubic += shares.cubic;
    ++parts;
  }
  if (parts < fewest) {
    check.found = "could not be measured: it takes some seconds of clear echo";
    return check;
  }
  const double level = 10 * std::log10(std::max(all.cubic / all.linear, 1e-6));
  check.numbers["cubic_db"] = level;
  check.found = fmt::format("{:.1f} dB below the echo", -level);
  check.state = level <= most_db ? State::ok : state_of_change(evidence);
  if (check.state != State::ok) {
    check.found = "the loudspeaker or its amplifier distorts: what it adds lies " + check.found;
    check.next =
        fmt::format("Turn the loudspeaker down, or limit the reference before it is both played and handed "
                    "over: the filter follows {}, and the suppressor has to remove the rest with the talker.",
                    evidence.state_space() ? "a loudspeaker that clips, but no other distortion" : "linear echo only");
  }
  return check;
}

Check check_bandwidth(const Evidence &evidence) {
  constexpr double empty_db = -55, heard_db = 10, matters_db = -35;
  constexpr size_t guard = 6; // bins
  Check check{"bandwidth", "Bandwidth of the reference"};
  check.limit = "no echo where the reference has no sound";
  check.numbers = {{"ref_hz", nullptr}, {"echo_above_db", nullptr}};
  const int rate = evidence.setup.rate;
  const BlockAnalyser analyser(rate);
  const size_t length = block_length(rate), hop = length / 2, bins = length / 2 + 1;
  std::vector<double> ref(bins);
  std::vector<size_t> echoes;
  for (size_t b = 0; b < evidence.echo.blocks.size(); ++b) {
    const EchoBlock &block = evidence.echo.blocks[b];
    if (!in_echo_alone(evidence, block))
      continue;
    echoes.push_back(b);
    const auto behind = std::ptrdiff_t(std::lround(nearest_delay(evidence.delay.points, block.time) * rate));
    const Spectrum x = analyser.spectrum(evidence.alignment.ref, std::ptrdiff_t(b * hop) - behind);
    for (size_t k = 0; k < bins; ++k)
      ref[k] += double(std::norm(x[k]));
  }
  if (echoes.size() * block_hop < 1) {
    check.found = "could not be measured: there is less than a second of echo alone";
    return check;
  }
  const double strongest = *std::ranges::max_element(ref);
  size_t end = bins;
  while (end > 0 && ref[end - 1] < from_db(empty_db) * strongest)
    --end;
  const double hertz = double(end) * rate / double(length);
  check.numbers["ref_hz"] = hertz;
  check.found = fmt::format("the reference reaches to {:.0f} Hz", hertz);
  check.state = State::ok;
  if (end + 2 * guard > bins)
    return check;
  std::vector<double> above(evidence.echo.blocks.size());
  for (size_t b = 0; b < above.size(); ++b)
    above[b] = total(analyser.spectrum(evidence.mic, std::ptrdiff_t(b * hop)), end + guard);
  double heard = 0, all = 0;
  for (const size_t b : echoes) {
    heard += above[b];
    all += evidence.echo.blocks[b].mic;
  }
  const double floor = quantile(above, 0.05) * double(echoes.size());
  const double level = 10 * std::log10(std::max(heard, 1e-30) / all);
  check.numbers["echo_above_db"] = level;
  if (heard < from_db(heard_db) * floor || level < matters_db)
    return check;
  check.state = State::wrong;
  check.found =
      fmt::format("the reference ends at {:.0f} Hz, the echo does not: what lies above is {:.1f} dB below the "
                  "echo",
                  hertz, -level);
  check.next = "The loudspeaker plays more than the reference holds. Take the reference where the samples go to the "
               "loudspeaker, behind every mixer and conversion of the rate.";
  return check;
}

} // namespace qv::tool::diagnose
