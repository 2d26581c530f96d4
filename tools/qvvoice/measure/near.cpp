// What becomes of the near-end talker.

#include <algorithm>

#include "measure/frames.h"
#include "measure/quality.h"

namespace qv::tool::measure {
namespace {

constexpr double lost_db = 10;      ///< a talker so much weaker is not heard
constexpr size_t onset_frames = 10; ///< 100 ms
constexpr size_t strong_frames = 2; ///< 20 ms

double sum_of(const std::vector<double> &powers, size_t begin, size_t count) {
  double sum = 0;
  for (size_t i = begin; i < begin + count; ++i)
    sum += powers[i];
  return sum;
}

/// Change of the near end's level where it talks alone; the noise of `out` is taken out.
Value level_change(const Frames &frames, const std::vector<double> &out) {
  const double noise = frames.noise_power(out).value_or(0);
  double near = 0, after = 0;
  for (size_t i = 0; i < frames.talk->size(); ++i)
    if ((*frames.talk)[i] == Talk::near) {
      near += (*frames.near)[i];
      after += out[i] - noise;
    }
  return near > 0 ? Value(to_db(std::max(after, rounding_noise) / near)) : Value(Gap::absent);
}

Value onsets_lost(const Frames &frames) {
  int onsets = 0, lost = 0;
  for (const Interval &talk : *frames.subject.truth->near) {
    const auto begin = size_t(std::lround(talk.begin / frame_seconds));
    if (begin + onset_frames > frames.out.size())
      continue;
    ++onsets;
    lost += sum_of(frames.out, begin, onset_frames) < from_db(-lost_db) * sum_of(*frames.near, begin, onset_frames);
  }
  return onsets > 0 ? Value(100.0 * lost / onsets) : Value(Gap::absent);
}

/// Output over near end in every frame of 20 ms of this class in which the near end is at its active level or above.
std::vector<double> strong_gains(const Frames &frames, Talk which) {
  std::vector<double> gains;
  for (size_t i = 0; frames.near_level && i + strong_frames <= frames.talk->size(); i += strong_frames) {
    const double near = sum_of(*frames.near, i, strong_frames);
    if ((*frames.talk)[i] == which && (*frames.talk)[i + 1] == which &&
        near >= strong_frames * from_db(*frames.near_level))
      gains.push_back(sum_of(frames.out, i, strong_frames) / near);
  }
  return gains;
}

/// Share of the strong frames of a class that come much weaker than is usual for the near end alone.
Value near_lost(const Frames &frames, Talk which) {
  const std::vector<double> alone = strong_gains(frames, Talk::near), gains = strong_gains(frames, which);
  if (alone.empty() || gains.empty())
    return Gap::absent;
  const double limit = median(alone) * from_db(-lost_db);
  return 100.0 * double(std::ranges::count_if(gains, [&](double gain) { return gain < limit; })) / double(gains.size());
}

Quality quality_of(const Frames &frames, SignalView processed, Talk which) {
  const int rate = frames.subject.rate;
  const std::vector<bool> chosen = frames_of(*frames.talk, which);
  return quality(joined(*frames.subject.near, chosen, rate), joined(processed, chosen, rate), rate);
}

void assign(const Quality &quality, Value &seg_snr, Value &si_sdr, Value &estoi) {
  seg_snr = quality.seg_snr;
  si_sdr = quality.si_sdr;
  estoi = quality.estoi;
}

} // namespace

void measure_near(const Frames &frames, Results &r) {
  if (!frames.talk || !frames.near)
    return;
  const Signal &out = frames.output.plain;
  r.near_level_db = level_change(frames, frames.out);
  r.near_level_sent_db = level_change(frames, frames.sent);
  assign(quality_of(frames, out, Talk::near), r.seg_snr_near_db, r.si_sdr_near_db, r.estoi_near);
  assign(quality_of(frames, out, Talk::both), r.seg_snr_double_db, r.si_sdr_double_db, r.estoi_double);
  assign(frames.mic_near, r.mic_seg_snr_near_db, r.mic_si_sdr_near_db, r.mic_estoi_near);
  assign(frames.mic_double, r.mic_seg_snr_double_db, r.mic_si_sdr_double_db, r.mic_estoi_double);
  r.onsets_lost_percent = onsets_lost(frames);
  if (r.estoi_double.known() && r.mic_estoi_double.known())
    r.estoi_gain_double = r.estoi_double.number() - r.mic_estoi_double.number();
  else
    r.estoi_gain_double = Gap::absent;
  r.near_lost_percent = near_lost(frames, Talk::both);
  r.near_lost_alone_percent = near_lost(frames, Talk::near);
}

} // namespace qv::tool::measure
