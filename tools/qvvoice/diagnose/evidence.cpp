#include "diagnose/evidence.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace qv::tool::diagnose {
namespace {

constexpr double jump_seconds = 0.002;
constexpr double piece_seconds = 10;                    // shorter ones do not tell a drift from jitter
constexpr double earliest_delay = -1, latest_delay = 2; // s, searched

Signal of_length(const Samples &samples, size_t length) {
  Signal signal = to_signal(samples);
  signal.resize(length);
  return signal;
}

DelaySearch search_for(double seconds) {
  const double window = std::clamp(seconds / 3, 1.0, 4.0);
  return {.window = window, .hop = window / 4, .earliest = earliest_delay, .latest = latest_delay};
}

using Piece = std::vector<DelayPoint>;

/// Runs of points without a jump between neighbours.
std::vector<Piece> pieces_of(const std::vector<DelayPoint> &points) {
  std::vector<Piece> pieces;
  for (const DelayPoint &point : points) {
    if (pieces.empty() || std::abs(point.delay - pieces.back().back().delay) > jump_seconds)
      pieces.emplace_back();
    pieces.back().push_back(point);
  }
  return pieces;
}

double active_seconds(const Samples &ref, const Setup &setup) {
  const auto length = size_t(setup.frame_len);
  const double threshold = parameter(setup, "aec.double_talk", "far_active_peak");
  size_t frames = 0;
  for (size_t begin = 0; begin + length <= ref.size(); begin += length)
    frames += std::any_of(&ref[begin], &ref[begin] + length, [&](int x) { return std::abs(x) >= threshold; });
  return double(frames * length) / setup.rate;
}

} // namespace

DelayHistory delay_history(const std::vector<DelayPoint> &points) {
  std::vector<Piece> pieces = pieces_of(points);
  const size_t longest = pieces.empty() ? 0 : std::ranges::max(pieces, {}, &Piece::size).size();
  std::erase_if(pieces, [&](const Piece &piece) { return piece.size() < std::min<size_t>(longest, 3); });
  pieces = pieces_of([&] { // those on both sides of a stray window belong together
    std::vector<DelayPoint> kept;
    for (const Piece &piece : pieces)
      kept.insert(kept.end(), piece.begin(), piece.end());
    return kept;
  }());

  DelayHistory history;
  const Piece *best = nullptr;
  for (const Piece &piece : pieces) {
    if (!history.points.empty())
      history.jumps.push_back({piece.front().time, history.points.back().delay, piece.front().delay});
    history.points.insert(history.points.end(), piece.begin(), piece.end());
    if (!best || piece.size() > best->size())
      best = &piece;
  }
  if (!best)
    return history;
  std::vector<double> delays;
  for (const DelayPoint &point : history.points)
    delays.push_back(point.delay);
  history.low = quantile(delays, 0.1);
  history.median = median(delays);
  history.high = quantile(delays, 0.9);
  if (best->back().time - best->front().time >= piece_seconds)
    history.drift_ppm = summarise(*best)->drift_ppm;
  return history;
}

double parameter(const Setup &setup, std::string_view section, std::string_view key) {
  for (const config::Field &field : config::fields)
    if (field.section == section && field.key == key)
      return config::decode(field, setup.para[size_t(field.word(setup.rate, 0))]);
  throw std::logic_error("no such parameter");
}

Evidence::Evidence(const Setup &with, const Samples &mic_in, const Samples &ref_in, const Samples &sent,
                   const Trace &traced)
    : setup(with), mic_samples(mic_in), ref_samples(ref_in), trace(traced),
      mic(of_length(mic_in, std::max(mic_in.size(), ref_in.size()))), ref(of_length(ref_in, mic.size())),
      out(of_length(sent, mic.size())), ref_active_seconds(active_seconds(ref_in, with)),
      delay(delay_history(delay_points(mic, ref, with.rate, search_for(seconds())))),
      echo(model_echo(mic, ref, with.rate, delay.points)), out_blocks(block_powers(out, with.rate, echo.blocks.size())),
      floor(0) {
  std::vector<double> powers;
  for (const EchoBlock &block : echo.blocks)
    if (block.mic > 0)
      powers.push_back(block.mic);
  if (!powers.empty())
    floor = quantile(powers, 0.05);
}

} // namespace qv::tool::diagnose
