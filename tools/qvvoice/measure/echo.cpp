// How much echo is left, and how fast it goes.

#include <algorithm>
#include <numeric>

#include "measure/far_quarters.h"

namespace qv::tool::measure {
namespace {

constexpr double audible_over_noise = 2; ///< power over the output's noise

Value erle(const Frames &frames, const std::vector<bool> &chosen) {
  const Sums sums = sums_over(frames, chosen, 0, chosen.size());
  return sums.count > 0 && sums.mic > 0 ? Value(ratio_db(sums.mic, sums.out)) : Value(Gap::absent);
}

Talk most_of(const std::vector<Talk> &talk, size_t begin) {
  size_t counts[talk_classes] = {};
  for (size_t i = begin; i < begin + quarter_frames; ++i)
    ++counts[size_t(talk[i])];
  return Talk(std::ranges::max_element(counts) - counts);
}

std::vector<Quarter> quarters_of(const Frames &frames) {
  std::vector<Quarter> quarters;
  const std::vector<bool> every(frames.mic.size(), true);
  for (size_t begin = 0; begin + quarter_frames <= frames.mic.size(); begin += quarter_frames) {
    const Sums all = sums_over(frames, every, begin, begin + quarter_frames);
    Quarter quarter{double(begin) * frame_seconds, all.mic / quarter_frames, all.out / quarter_frames, {}, {}};
    if (frames.talk)
      quarter.talk = most_of(*frames.talk, begin);
    if (frames.far_heard) {
      const Sums heard = sums_over(frames, *frames.far_heard, begin, begin + quarter_frames);
      if (2 * heard.count >= quarter_frames && heard.mic > 0)
        quarter.erle = ratio_db(heard.mic, heard.out);
    }
    quarters.push_back(quarter);
  }
  return quarters;
}

std::span<const FarQuarter> settled(const std::vector<FarQuarter> &quarters) {
  const auto first =
      std::ranges::find_if(quarters, [](const FarQuarter &quarter) { return quarter.time >= first_seconds; });
  return {first, quarters.end()};
}

bool is_burst(const FarQuarter &quarter, double out_noise) {
  const Sums &sums = quarter.sums;
  return sums.out > sums.echo * from_db(-reached_db) && sums.out > audible_over_noise * out_noise * double(sums.count);
}

Value bursts(const Frames &frames, std::span<const FarQuarter> quarters) {
  if (quarters.empty() || !frames.out_noise)
    return Gap::absent;
  const auto count =
      std::ranges::count_if(quarters, [&](const FarQuarter &quarter) { return is_burst(quarter, *frames.out_noise); });
  return 100.0 * double(count) / double(quarters.size());
}

/// What the measure of the residual could show at most.
std::optional<double> limit_db(const Background &background, const FarQuarter &quarter) {
  return reduction_db(
      {quarter.time, quarter.spoken, quarter.sums, residual_power(background, background.level, quarter.sums.count)});
}

void measure_residual(const Frames &frames, std::span<const FarQuarter> first, std::span<const FarQuarter> rest,
                      Results &results) {
  if (!frames.echo)
    return;
  results.echo_reduction_first_db = mean_over(first, reduction_db);
  results.echo_reduction_db = mean_over(rest, reduction_db);
  results.echo_reduction_limit_db = results.residual_over_background_db = Gap::absent;
  if (!frames.background)
    return;
  const Background &background = *frames.background;
  results.echo_reduction_limit_db =
      mean_over(rest, [&](const FarQuarter &quarter) { return limit_db(background, quarter); });
  if (background.total >= least_background)
    results.residual_over_background_db = mean_over(rest, [&](const FarQuarter &quarter) {
      return quarter.residual ? to_db(*quarter.residual / background.total) : std::nullopt;
    });
}

/// Echo over what in the output is not the near end, which is taken out by its best gain in every quarter of double
/// talk. Distortion of the near end counts as echo: the true reduction is no less.
Value double_talk_erle(const Frames &frames) {
  const Subject &subject = frames.subject;
  if (!subject.near || !subject.echo)
    return Gap::unknown;
  const std::vector<bool> both = frames_of(*frames.talk, Talk::both);
  const Signal near = joined(*subject.near, both, subject.rate), echo = joined(*subject.echo, both, subject.rate);
  const Signal out = joined(frames.output.plain, both, subject.rate);
  const size_t length = quarter_frames * frame_length(subject.rate);
  double echo_energy = 0, rest = 0;
  for (size_t begin = 0; begin + length <= near.size(); begin += length) {
    const SignalView n = SignalView(near).subspan(begin, length), o = SignalView(out).subspan(begin, length);
    const double cross = std::inner_product(n.begin(), n.end(), o.begin(), 0.0), near_energy = energy(n);
    rest += std::max(energy(o) - (near_energy > 0 ? cross * cross / near_energy : 0), rounding_noise * double(length));
    echo_energy += energy(SignalView(echo).subspan(begin, length));
  }
  return rest > 0 && echo_energy > 0 ? Value(ratio_db(echo_energy, rest)) : Value(Gap::absent);
}

/// Median over the library's frames that begin in far-end single talk: a mean would hang on the pauses.
Value linear_erle(const Frames &frames, const std::vector<bool> &far) {
  const Output &output = frames.output;
  if (output.trace.empty())
    return Gap::unknown;
  std::vector<double> reductions;
  for (size_t k = 0; k < output.trace.size(); ++k) {
    const size_t i = k * size_t(output.frame_len) / frame_length(frames.subject.rate);
    if (i < far.size() && far[i])
      reductions.push_back(double(output.trace[k].linear_erle_db));
  }
  return reductions.empty() ? Value(Gap::absent) : Value(median(reductions));
}

} // namespace

void measure_echo(const Frames &frames, Results &results) {
  results.quarters = quarters_of(frames);
  if (frames.far_heard)
    results.erle_heard_db = erle(frames, *frames.far_heard);
  if (!frames.talk)
    return;
  const std::vector<bool> far = frames_of(*frames.talk, Talk::far);
  const std::vector<FarQuarter> quarters = far_quarters(frames, 0, far.size());
  const std::span<const FarQuarter> rest = settled(quarters);
  const std::span<const FarQuarter> first = std::span(quarters).first(quarters.size() - rest.size());
  const Sums sums = sums_over(frames, far, 0, far.size());
  results.erle_far_db = erle(frames, far);
  results.erle_first_db = mean_over(first, erle_db);
  results.erle_settled_db = mean_over(rest, erle_db);
  results.erle_linear_db = linear_erle(frames, far);
  results.erle_double_db = double_talk_erle(frames);
  results.residual_echo_dbfs = sums.count > 0 ? Value(to_db(sums.out / double(sums.count))) : Value(Gap::absent);
  results.time_to_20_db_s = talk_until_reached(quarters, 0);
  results.echo_bursts_percent = bursts(frames, rest);
  measure_residual(frames, first, rest, results);
}

} // namespace qv::tool::measure
