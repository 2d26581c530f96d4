#include "state_space/canceller.h"

#include <numbers>

#include "dsp/sample.h"
#include "qvvoice/dsp/layout.h"

namespace qv::state_space {

namespace {

constexpr FilterKind steady_kind{over_partitions, 0.9995, 1};
constexpr FilterKind quick_kind{0, 0.98, 0.05f};

constexpr float follow_below = 0.7f; // the quick filter's error over the steady one's
constexpr float throw_back_above = 3;
constexpr float least_followed = 100; // mean square of an error that is worth it
constexpr float muted_below = 2;      // mean square: dither at most
constexpr double lowest_hz = 10;      // below, what the microphone has is no sound: its steps would move the path
constexpr float far_speech = 1000;    // mean square of a reference from which the path can be learnt
constexpr float unbounded = 1e15f;    // energy that no frame has; false for an undefined one: a filter has run away
constexpr float found_peak = 6;       // of an arrival, over the rms
constexpr int32_t found_frames = 3;   // for which it must last
constexpr float not_cancelled = 0.5f; // error over microphone: the filter does not hold the echo
constexpr int32_t room_behind = 5;    // partitions that its reverberation needs at the least

int64_t energy_of(const int16_t *samples, int32_t n) {
  int64_t sum = 0;
  for (int32_t i = 0; i < n; ++i)
    sum += int32_t(samples[i]) * samples[i];
  return sum;
}

/// An echo that lies in front of the filter or too near its end: moves the bulk delay to it.
void align(Canceller &c) {
  const Arrival &a = c.arrival;
  c.far_frames = c.reference.power_at(0) > far_speech ? c.far_frames + 1 : 0;
  const int32_t frame = a.lag / c.n, place = frame - c.reference.delay;
  const bool found = a.peak > found_peak && a.lasting >= found_frames && c.far_frames > found_frames &&
                     c.steady.energy > not_cancelled * c.mic_energy;
  if (!found || (place >= 0 && place <= c.steady.partitions - room_behind))
    return;
  const int32_t wanted = std::clamp(frame - room_in_front, 0, c.most_delay), by = wanted - c.reference.delay;
  if (by == 0)
    return;
  shift(by, c.steady);
  shift(by, c.quick);
  forget(c.drift);
  set_delay(wanted, c.reference);
}

/// Estimates of both filters, time samples. @param echo  [2][2N] written, the last N of each hold
void estimate(float (&echo)[2][2 * QV_MAX_FRAME], Canceller &c) {
  for (Filter *f : {&c.steady, &c.quick}) {
    rotate(c.drift.turn, *f);
    predict(c.reference, *f);
  }
  const SplitSpectrum steady = c.steady.echo[0], quick = c.quick.echo[0];
  c.transform.inverse({{steady.re, steady.im}, {quick.re, quick.im}, {}, {}}, {echo[0], echo[1], nullptr, nullptr});
}

/// Spectra of the errors, [N + 1] and what rounds it up to a stride.
struct Errors {
  float re[3][QV_MAX_FRAME + vector_width] = {}, im[3][QV_MAX_FRAME + vector_width] = {};

  SplitSpectrum steady() { return {re[0], im[0]}; }
  SplitSpectrum quick() { return {re[1], im[1]}; }
  SplitSpectrum arriving() { return {re[2], im[2]}; } ///< windowed
};

/// Of both filters for their updates, and of the one that goes on for arrival and suppressor.
void analyse(float (&blocks)[2][2 * QV_MAX_FRAME], const float *error, Errors &errors, Canceller &c) {
  float arriving[2 * QV_MAX_FRAME] = {}, windowed[2 * QV_MAX_FRAME];
  for (int32_t i = 0; i < c.n; ++i)
    arriving[c.n + i] = error[i] * c.arrival.window[i];
  window_error(error, windowed, c.suppressor);
  c.transform.forward({blocks[0], blocks[1], arriving, windowed},
                      {errors.steady(), errors.quick(), errors.arriving(), c.suppressor.error});
}

/// The steady filter follows a quick one that leaves less; a quick one that leaves much more starts again from it.
void compare(bool following, Canceller &c) {
  if (following) {
    follow(c.quick, c.steady);
    c.steady.energy = c.quick.energy;
  } else if (c.quick.energy > throw_back_above * c.steady.energy) {
    copy_path(c.steady, c.quick);
    c.quick.energy = c.steady.energy;
  }
}

/// A high-pass of first order. @param heard  [N] written  @return its energy
float without_offset(const int16_t *mic, float *heard, Canceller &c) {
  float energy = 0;
  for (int32_t i = 0; i < c.n; ++i) {
    heard[i] = float(mic[i]) - c.offset;
    c.offset += c.offset_weight * heard[i];
    energy += heard[i] * heard[i];
  }
  return energy;
}

/// Errors of both filters in place of their estimates, behind N zeros; filters that have run away start again. A muted
/// microphone has no echo to be taken off.
void subtract(const int16_t *mic, float (&errors)[2][2 * QV_MAX_FRAME], Canceller &c) {
  const int32_t n = c.n;
  const float scale = 1 / float(2 * n), weight = 1 - c.energy_keep;
  c.report.mic_energy_prev = c.report.mic_energy;
  c.report.mic_energy = energy_of(mic, n);
  c.muted = float(c.report.mic_energy) < muted_below * float(n);
  if (c.muted) {
    for (auto &error : errors)
      std::fill_n(error, 2 * n, 0.f);
    return;
  }
  float heard[QV_MAX_FRAME];
  c.mic_energy += weight * (without_offset(mic, heard, c) - c.mic_energy);
  Filter *filters[] = {&c.steady, &c.quick};
  for (int32_t f = 0; f < 2; ++f) {
    float *error = errors[f] + n;
    std::fill_n(errors[f], n, 0.f);
    float energy = 0;
    for (int32_t i = 0; i < n; ++i) {
      error[i] = heard[i] - scale * error[i];
      energy += error[i] * error[i];
    }
    filters[f]->energy += weight * (energy - filters[f]->energy);
  }
  if (c.steady.energy < unbounded && c.quick.energy < unbounded)
    return;
  forget(c.drift);
  for (int32_t f = 0; f < 2; ++f) {
    reset(*filters[f]);
    std::copy_n(heard, n, errors[f] + n);
  }
}

void report(const int16_t *out, Canceller &c) {
  const Suppressor &s = c.suppressor;
  FrameReport &r = c.report;
  r.path_changed = s.change.changed;
  r.single_talk = s.single_talk;
  r.talking = s.talker.talking;
  r.far_heard = s.far_frames > 0;
  r.filter_delay = c.reference.delay * c.n;
  r.filter_length = c.steady.partitions * c.n;
  r.echo_at = r.filter_delay + highest_tap(c.steady);
  r.drift_ppm = c.drift.ppm();
  r.residual_power = s.residual_power;
  r.explained = c.mic_energy > 0 ? std::clamp(1 - c.steady.energy / c.mic_energy, 0.f, 1.f) : 0;
  r.gain = s.gain;
  r.out_energy = energy_of(out, c.n);
}

} // namespace

bool init(int32_t rate, int32_t frame_len, const Tuning &tuning, bool noise_reduced, uint32_t seed, Canceller &c) {
  const Shape shape = shape_of(rate, frame_len, tuning.tail_ms);
  c = {};
  c.n = frame_len;
  c.most_delay = shape.most_delay();
  c.energy_keep = shape.keep(0.85);
  c.offset_weight = float(2 * std::numbers::pi * lowest_hz / rate);
  const bool taken[] = {
      c.transform.init(2 * frame_len),
      init(shape, c.reference),
      init(shape, steady_kind, c.steady),
      init(shape, quick_kind, c.quick),
      init(shape, c.arrival),
      init(shape, c.drift),
      init(shape, noise_reduced, seed, c.suppressor),
      c.to_lags.init(c.arrival.length, BatchTransform::Ways::inverse),
  };
  retune(tuning, c);
  return std::ranges::all_of(taken, [](bool done) { return done; });
}

void destroy(Canceller &c) {
  c.transform.destroy();
  c.to_lags.destroy();
  destroy(c.reference);
  destroy(c.steady);
  destroy(c.quick);
  destroy(c.arrival);
  destroy(c.drift);
  destroy(c.suppressor);
}

void retune(const Tuning &tuning, Canceller &c) { tune(tuning, c.suppressor); }

void cancel(const int16_t *mic, const int16_t *ref, int16_t *error, Canceller &c) {
  const int32_t n = c.n;
  float now_re[QV_MAX_FRAME + 1], now_im[QV_MAX_FRAME + 1];
  push(ref, c.reference, c.transform, {now_re, now_im});
  push({now_re, now_im}, c.arrival);
  constrain(c.steady, c.quick, c.transform);

  float blocks[2][2 * QV_MAX_FRAME];
  estimate(blocks, c);
  subtract(mic, blocks, c);
  const bool following = c.quick.energy < follow_below * c.steady.energy && c.steady.energy > least_followed * float(n);
  const float *going_on = blocks[following ? 1 : 0] + n;
  Errors errors;
  analyse(blocks, going_on, errors, c);
  if (!c.muted) {
    const bool far_heard = c.reference.power_at(c.reference.delay) > far_speech;
    adapt(c.reference, errors.steady(), far_heard, c.steady);
    adapt(c.reference, errors.quick(), far_heard, c.quick);
    search(errors.arriving(), c.arrival, c.to_lags);
    align(c);
    compare(following, c);
    observe(c.steady, far_heard, c.drift);
  }
  to_samples(error, n, [&](int32_t i) { return going_on[i]; });
  c.report.linear_energy = energy_of(error, n);
}

void suppress(const float *noise_gain, int16_t *out, Canceller &c) {
  Suppressor &s = c.suppressor;
  float samples[QV_MAX_FRAME];
  const EchoState state{c.steady.echo[0], c.steady.uncertainty, c.reference.power_at(c.reference.delay), c.muted};
  suppress(state, c.arrival, noise_gain, c.transform, samples, s);
  to_samples(out, c.n, [&](int32_t i) { return samples[i]; });
  if (s.change.changed) {
    copy_path(c.steady, c.quick);
    open(c.steady, c.quick);
  }
  report(out, c);
}

} // namespace qv::state_space
