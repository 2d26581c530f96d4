#include "measure/far_quarters.h"

#include <algorithm>

namespace qv::tool::measure {
namespace {

std::optional<double> residual_of(const Frames &frames, size_t begin, size_t end) {
  const std::vector<bool> &far = frames.background_frames.far;
  const auto mean = mean_of(frames.out_bands, far, begin, end);
  if (!mean || !frames.background)
    return std::nullopt;
  const auto count = std::count(far.begin() + std::ptrdiff_t(begin), far.begin() + std::ptrdiff_t(end), true);
  return residual_power(*frames.background, *mean, size_t(count));
}

} // namespace

Sums sums_over(const Frames &frames, const std::vector<bool> &chosen, size_t begin, size_t end) {
  Sums sums;
  for (size_t i = begin; i < end; ++i)
    if (chosen[i]) {
      sums.mic += frames.mic[i];
      sums.out += std::max(frames.out[i], rounding_noise);
      sums.echo += frames.echo ? (*frames.echo)[i] : frames.mic[i];
      ++sums.count;
    }
  return sums;
}

std::vector<FarQuarter> far_quarters(const Frames &frames, size_t begin, size_t end) {
  const std::vector<bool> far = frames_of(*frames.talk, Talk::far);
  std::vector<FarQuarter> found;
  double spoken = 0;
  for (; begin + quarter_frames <= end; begin += quarter_frames) {
    const auto from = frames.talk->begin() + std::ptrdiff_t(begin), to = from + quarter_frames;
    const bool undisturbed = std::none_of(from, to, [](Talk talk) { return talk == Talk::near || talk == Talk::both; });
    const Sums sums = sums_over(frames, far, begin, begin + quarter_frames);
    if (undisturbed && 2 * sums.count >= quarter_frames && sums.mic > 0)
      found.push_back(
          {double(begin) * frame_seconds, spoken, sums, residual_of(frames, begin, begin + quarter_frames)});
    spoken += double(sums.count) * frame_seconds;
  }
  return found;
}

Value talk_until_reached(const std::vector<FarQuarter> &quarters, double time) {
  const auto first = std::ranges::find_if(quarters, [&](const FarQuarter &quarter) { return quarter.time >= time; });
  if (first == quarters.end())
    return Gap::absent;
  const auto works = [](const FarQuarter &quarter) { return *erle_db(quarter) >= reached_db; };
  const auto found =
      std::adjacent_find(first, quarters.end(), [&](const auto &a, const auto &b) { return works(a) && works(b); });
  return found == quarters.end() ? Value(Gap::never) : Value(found->spoken - first->spoken);
}

} // namespace qv::tool::measure
