#include "diagnose/delay_history.h"

#include <algorithm>
#include <cmath>

namespace qv::tool::diagnose {
namespace {

constexpr double jump_seconds = 0.002;
constexpr double piece_seconds = 10; // shorter ones do not tell a drift from jitter

using Piece = std::vector<DelayPoint>;

} // namespace

std::vector<Piece> pieces_of(const std::vector<DelayPoint> &points) {
  std::vector<Piece> pieces;
  for (const DelayPoint &point : points) {
    if (pieces.empty() || std::abs(point.delay - pieces.back().back().delay) > jump_seconds)
      pieces.emplace_back();
    pieces.back().push_back(point);
  }
  return pieces;
}

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

} // namespace qv::tool::diagnose
