// How much echo is left, and how fast it goes.

#include <algorithm>
#include <numeric>

#include "measure/frames.h"

namespace qv::tool::measure {
namespace {

constexpr size_t quarter_frames = 25;    ///< 10 ms frames of a quarter second
constexpr double reached_db = 20;        ///< echo reduction that counts as working
constexpr double first_seconds = 3;      ///< of a call; then the canceller should have settled
constexpr double audible_over_noise = 2; ///< power over the output's noise

double ratio_db(double above, double below) { return 10 * std::log10(above / below); }

struct Sums {
  double mic = 0, out = 0, echo = 0;
  size_t count = 0;
};

/// Power sums over frames begin .. end - 1 with a flag.
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

Value erle(const Frames &frames, const std::vector<bool> &chosen) {
  const Sums sums = sums_over(frames, chosen, 0, chosen.size());
  return sums.count > 0 && sums.mic > 0 ? Value(ratio_db(sums.mic, sums.out)) : Value(Gap::absent);
}

Talk most_of(const std::vector<Talk> &talk, size_t begin) {
  size_t counts[4] = {};
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

/// A quarter second of far-end single talk: the near end is not heard in any of its frames.
struct FarQuarter {
  double time;   ///< s, its beginning
  double spoken; ///< s of far-end single talk in the recording before it
  Sums sums;     ///< over its frames of far-end single talk
};

std::vector<FarQuarter> far_quarters(const Frames &frames) {
  const std::vector<bool> far = frames_of(*frames.talk, Talk::far);
  std::vector<FarQuarter> found;
  double spoken = 0;
  for (size_t begin = 0; begin + quarter_frames <= far.size(); begin += quarter_frames) {
    const auto from = frames.talk->begin() + std::ptrdiff_t(begin), to = from + quarter_frames;
    const bool undisturbed = std::none_of(from, to, [](Talk talk) { return talk == Talk::near || talk == Talk::both; });
    const Sums sums = sums_over(frames, far, begin, begin + quarter_frames);
    if (undisturbed && 2 * sums.count >= quarter_frames && sums.mic > 0)
      found.push_back({double(begin) * frame_seconds, spoken, sums});
    spoken += double(sums.count) * frame_seconds;
  }
  return found;
}

using FarQuarters = std::vector<FarQuarter>::const_iterator;

FarQuarters first_settled(const std::vector<FarQuarter> &quarters) {
  return std::ranges::find_if(quarters, [](const FarQuarter &quarter) { return quarter.time >= first_seconds; });
}

/// Mean of their reductions in dB: a burst counts for as long as it lasts, not for its energy.
Value mean_erle(FarQuarters begin, FarQuarters end) {
  double sum = 0;
  for (auto quarter = begin; quarter != end; ++quarter)
    sum += ratio_db(quarter->sums.mic, quarter->sums.out);
  return begin == end ? Value(Gap::absent) : Value(sum / double(end - begin));
}

/// Far-end single talk from `time` on until two quarters in a row have 20 dB.
Value talk_until_reached(const std::vector<FarQuarter> &quarters, double time) {
  const auto first = std::ranges::find_if(quarters, [&](const FarQuarter &quarter) { return quarter.time >= time; });
  if (first == quarters.end())
    return Gap::absent;
  const auto works = [](const FarQuarter &quarter) {
    return ratio_db(quarter.sums.mic, quarter.sums.out) >= reached_db;
  };
  const auto found =
      std::adjacent_find(first, quarters.end(), [&](const auto &a, const auto &b) { return works(a) && works(b); });
  return found == quarters.end() ? Value(Gap::never) : Value(found->spoken - first->spoken);
}

Value path_recovery(const Frames &frames, const std::vector<FarQuarter> &quarters) {
  Value worst = Gap::absent;
  for (const scene::EchoEvent &event : frames.subject.truth->events) {
    const Value one = talk_until_reached(quarters, event.time);
    if (!one.known() && one.gap() == Gap::never)
      return one;
    if (one.known())
      worst = worst.known() ? std::max(worst.number(), one.number()) : one.number();
  }
  return worst;
}

bool is_burst(const FarQuarter &quarter, double out_noise) {
  const Sums &sums = quarter.sums;
  return sums.out > sums.echo * from_db(-reached_db) && sums.out > audible_over_noise * out_noise * double(sums.count);
}

Value bursts(const Frames &frames, const std::vector<FarQuarter> &quarters) {
  const auto settled = first_settled(quarters);
  if (settled == quarters.end() || !frames.out_noise)
    return Gap::absent;
  const auto count =
      std::count_if(settled, quarters.end(), [&](const auto &quarter) { return is_burst(quarter, *frames.out_noise); });
  return 100.0 * double(count) / double(quarters.end() - settled);
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
  const std::vector<FarQuarter> quarters = far_quarters(frames);
  const Sums sums = sums_over(frames, far, 0, far.size());
  const auto settled = first_settled(quarters);
  results.erle_far_db = erle(frames, far);
  results.erle_first_db = mean_erle(quarters.begin(), settled);
  results.erle_settled_db = mean_erle(settled, quarters.end());
  results.erle_linear_db = linear_erle(frames, far);
  results.erle_double_db = double_talk_erle(frames);
  results.residual_echo_dbfs = sums.count > 0 ? Value(to_db(sums.out / double(sums.count))) : Value(Gap::absent);
  results.time_to_20_db_s = talk_until_reached(quarters, 0);
  results.echo_bursts_percent = bursts(frames, quarters);
  results.path_recovery_s = path_recovery(frames, quarters);
}

} // namespace qv::tool::measure
