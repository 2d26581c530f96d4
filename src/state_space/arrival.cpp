#include "state_space/arrival.h"

#include <cmath>
#include <numbers>
#include <numeric>

#include "dsp/arrays.h"
#include "dsp/layout.h"

namespace qv::state_space {

namespace {

constexpr float first_hertz = 300, last_hertz = 3500;
constexpr float least_reference = 1600, least_error = 83; // mean square per sample, white: -58 and -71 dBFS
constexpr int32_t lanes = 4;
constexpr int32_t searched = 2 * lanes; // frames of lag a frame: those whose cross-spectra are largest
constexpr int32_t same_place = 2;       // lags

constexpr auto owned = [](Arrival &a, auto visit) {
  for (float **array : {&a.direction.re, &a.direction.im, &a.cross.re, &a.cross.im})
    visit(*array, a.delays * a.bins);
  visit(a.window, a.n);
};

/// Over its magnitude; 0 where it is weaker than that.
void direct(const SplitSpectrum &in, int32_t first, int32_t bins, float least_power, const SplitSpectrum &out) {
  for (int32_t b = 0; b < bins; ++b) {
    const float re = in.re[first + b], im = in.im[first + b], power = re * re + im * im;
    const float scale = power > least_power ? 1 / std::sqrt(power) : 0;
    out.re[b] = re * scale;
    out.im[b] = im * scale;
  }
}

/// One step of the average of error * conj(reference). @return its power over the band
float average(const SplitSpectrum &error, const SplitSpectrum &reference, int32_t bins, float keep,
              const SplitSpectrum &cross) {
  const float *__restrict er = error.re, *__restrict ei = error.im, *__restrict xr = reference.re,
                          *__restrict xi = reference.im;
  float *__restrict cr = cross.re, *__restrict ci = cross.im;
  const float weight = 1 - keep;
  for (int32_t b = 0; b < bins; ++b) {
    cr[b] = keep * cr[b] + weight * (er[b] * xr[b] + ei[b] * xi[b]);
    ci[b] = keep * ci[b] + weight * (ei[b] * xr[b] - er[b] * xi[b]);
  }
  float power = 0;
  for (int32_t b = 0; b < bins; ++b)
    power += cr[b] * cr[b] + ci[b] * ci[b];
  return power;
}

struct Highest {
  float over_rms = 0;
  int32_t lag = 0; ///< samples
};

/// Over the first half: lags of the frame itself. @param values  [length]
Highest highest_of(const float *values, int32_t frame, const Arrival &a) {
  const int32_t count = a.length / 2;
  float most = 0, power = 1e-20f;
  int32_t place = 0;
  for (int32_t i = 0; i < count; ++i) {
    const float squared = values[i] * values[i];
    power += squared;
    if (squared > most) {
      most = squared;
      place = i;
    }
  }
  return {std::sqrt(most * float(count) / power), frame * a.n + place * a.step};
}

} // namespace

bool init(const Shape &shape, Arrival &a) {
  a = {};
  a.n = shape.n;
  a.delays = shape.delays;
  a.first = shape.bin(first_hertz);
  a.bins = shape.bin(last_hertz) - a.first;
  a.step = shape.rate / narrow_rate; // the band needs no more than 8000 Hz
  a.length = 2 * shape.n / a.step;
  a.keep = shape.keep(0.8);
  a.direction.stride = a.cross.stride = a.bins;
  if (!take(a, owned))
    return false;
  for (int32_t i = 0; i < a.n; ++i)
    a.window[i] = float(0.5 - 0.5 * std::cos(2 * std::numbers::pi * (i + 0.5) / a.n));
  return true;
}

void destroy(Arrival &a) { give_back(a, owned); }

void push(const SplitSpectrum &reference, Arrival &a) {
  a.newest = (a.newest + a.delays - 1) % a.delays;
  direct(reference, a.first, a.bins, least_reference * 2 * float(a.n), a.direction[a.newest]);
}

void search(const SplitSpectrum &error, Arrival &a, BatchTransform &to_lags) {
  float re[QV_MAX_FRAME], im[QV_MAX_FRAME];
  const SplitSpectrum direction{re, im};
  direct(error, a.first, a.bins, least_error * 0.375f * float(a.n), direction); // a Hann window's mean square is 3/8

  constexpr int32_t most_delays = 64;
  float power[most_delays];
  int32_t order[most_delays];
  for (int32_t d = 0; d < a.delays; ++d)
    power[d] = average(direction, a.direction[(a.newest + d) % a.delays], a.bins, a.keep, a.cross[d]);
  std::iota(order, order + a.delays, 0);
  std::partial_sort(order, order + searched, order + a.delays,
                    [&](int32_t x, int32_t y) { return power[x] > power[y] || (power[x] == power[y] && x < y); });

  Highest best;
  float spectrum_re[lanes][QV_MAX_FRAME + 1] = {}, spectrum_im[lanes][QV_MAX_FRAME + 1] = {}; // zero outside the band
  float values[lanes][2 * QV_MAX_FRAME];
  const auto in = [&](int32_t lane) { return ConstSplitSpectrum{spectrum_re[lane], spectrum_im[lane]}; };
  for (int32_t from = 0; from < searched; from += lanes) {
    for (int32_t lane = 0; lane < lanes; ++lane) {
      std::copy_n(a.cross[order[from + lane]].re, a.bins, spectrum_re[lane] + a.first);
      std::copy_n(a.cross[order[from + lane]].im, a.bins, spectrum_im[lane] + a.first);
    }
    to_lags.inverse({in(0), in(1), in(2), in(3)}, {values[0], values[1], values[2], values[3]});
    for (int32_t lane = 0; lane < lanes; ++lane)
      if (const Highest found = highest_of(values[lane], order[from + lane], a); found.over_rms > best.over_rms)
        best = found;
  }
  a.lasting = std::abs(best.lag - a.lag) <= same_place * a.step ? a.lasting + 1 : 0;
  a.peak = best.over_rms;
  a.lag = best.lag;
}

} // namespace qv::state_space
