#include "state_space/drift.h"

#include <cmath>
#include <numbers>

#include "dsp/arrays.h"

namespace qv::state_space {

namespace {

constexpr float first_hertz = 200, last_hertz = 2000; // speech moves the path there
constexpr float interval_ms = 250;
constexpr float least_heard = 0.5f;                  // share of an interval
constexpr float least_coherence = 0.7f;              // of the two paths; below it they are not the same path moved
constexpr float first_gain = 0.6f, last_gain = 0.2f; // share of what is seen that is taken over
constexpr int32_t first_looks = 8;
constexpr float largest_difference = 300e-6f; // of the clocks: cheap crystals are within 100e-6
constexpr float largest_shift = 2;            // samples: what would turn the highest bin by more than half a circle

constexpr auto owned = [](Drift &d, auto visit) {
  for (float **array : {&d.earlier.re, &d.earlier.im})
    visit(*array, d.partitions * d.bins);
  for (float **array : {&d.turn.re, &d.turn.im})
    visit(*array, d.stride);
};

/// Radians by which bin k turns per sample of delay.
double angle_of(int32_t k, const Drift &d) { return std::numbers::pi * k / d.n; }

void remember(const Filter &f, Drift &d) {
  for (int32_t p = 0; p < d.partitions; ++p) {
    std::copy_n(f.path[p].re + d.first, d.bins, d.earlier[p].re);
    std::copy_n(f.path[p].im + d.first, d.bins, d.earlier[p].im);
  }
  d.known = true;
}

/// What of the earlier path's motion the drift did not foresee, samples; 0 when it is not the same path.
float unforeseen_shift(const Filter &f, const Drift &d) {
  double slope = 0, curvature = 0, common = 0, now = 0, then = 0;
  for (int32_t b = 0; b < d.bins; ++b) {
    const double angle = angle_of(d.first + b, d);
    double re = 0, im = 0; // of conj(earlier) * path, over the partitions
    for (int32_t p = 0; p < d.partitions; ++p) {
      const SplitSpectrum w = f.path[p], e = d.earlier[p];
      const double wr = w.re[d.first + b], wi = w.im[d.first + b], er = e.re[b], ei = e.im[b];
      re += er * wr + ei * wi;
      im += er * wi - ei * wr;
      now += wr * wr + wi * wi;
      then += er * er + ei * ei;
    }
    const double foreseen = angle * d.turned, cosine = std::cos(foreseen), sine = std::sin(foreseen);
    const double along = re * cosine - im * sine, across = re * sine + im * cosine;
    slope -= angle * across;
    curvature += angle * angle * along;
    common += along;
  }
  if (!(common > least_coherence * std::sqrt(now * then)) || !(curvature > 0))
    return 0;
  return std::clamp(float(slope / curvature), -largest_shift, largest_shift);
}

void set_turn(Drift &d) {
  for (int32_t k = 0; k <= d.n; ++k) {
    d.turn.re[k] = float(std::cos(angle_of(k, d) * d.per_frame));
    d.turn.im[k] = float(-std::sin(angle_of(k, d) * d.per_frame));
  }
}

} // namespace

bool init(const Shape &shape, Drift &d) {
  d = {};
  d.n = shape.n;
  d.stride = shape.stride;
  d.partitions = shape.partitions;
  d.first = shape.bin(first_hertz);
  d.bins = shape.bin(last_hertz) - d.first;
  d.interval = shape.frames(interval_ms);
  d.largest = largest_difference * float(shape.n);
  d.earlier.stride = d.bins;
  if (!take(d, owned))
    return false;
  set_turn(d);
  return true;
}

void destroy(Drift &d) { give_back(d, owned); }

void forget(Drift &d) {
  d.known = false;
  d.turned = 0;
  d.elapsed = d.heard = 0;
}

void observe(const Filter &f, bool far_heard, Drift &d) {
  d.turned += d.per_frame;
  d.heard += far_heard;
  if (++d.elapsed < d.interval || float(d.heard) < least_heard * float(d.interval))
    return;
  if (d.known) {
    const float seen = unforeseen_shift(f, d) / float(d.elapsed);
    d.per_frame =
        std::clamp(d.per_frame + (d.looks < first_looks ? first_gain : last_gain) * seen, -d.largest, d.largest);
    d.looks = std::min(d.looks + 1, first_looks);
    set_turn(d);
  }
  forget(d);
  remember(f, d);
}

} // namespace qv::state_space
