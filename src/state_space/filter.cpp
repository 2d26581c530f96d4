#include "state_space/filter.h"

#include <cstring>

#include "dsp/arrays.h"
#include "qvvoice/dsp/layout.h"

namespace qv::state_space {

namespace {

constexpr float start_variance = 0.3f; // power gain per partition: an echo about as loud as the reference
// Of the path, per 20 ms in which the far end is heard. What the reference hardly excites would grow for hours: by 15
// dB in 40 minutes of the same sentences. More forgetting is heard as echo after changes.
constexpr double path_keep = 0.9999;
constexpr float block_share = 0.5f;   // half of a block's samples are new
constexpr float least_noise = 0.3f;   // per sample, sample units squared: four times that of rounding
constexpr float least_share = 0.1f;   // of an error's power that counts as noise however uncertain the echo is
constexpr float opened_evenly = 0.5f; // share of the variance that does not follow where the path was
constexpr float opened_noise = 0.1f;  // what was taken for noise was echo

constexpr auto owned = [](Filter &f, auto visit) {
  const int32_t stride = f.path.stride;
  for (float **array : {&f.path.re, &f.path.im, &f.variance})
    visit(*array, f.all * stride);
  for (float **array : {&f.echo.re, &f.echo.im, &f.uncertainty, &f.noise})
    visit(*array, stride);
};

/// The reference that a partition weighs.
SplitSpectrum reference_of(const Reference &r, int32_t partition, const Filter &f) {
  return partition < f.partitions ? r.weighed(partition) : r.over_weighed(partition - f.partitions);
}

void add_product(const float *__restrict xr, const float *__restrict xi, const float *__restrict wr,
                 const float *__restrict wi, const float *__restrict variance, float *__restrict yr,
                 float *__restrict yi, float *__restrict uncertainty, int32_t count) {
  for (int32_t k = 0; k < count; ++k) {
    yr[k] += xr[k] * wr[k] - xi[k] * wi[k];
    yi[k] += xr[k] * wi[k] + xi[k] * wr[k];
    uncertainty[k] += (xr[k] * xr[k] + xi[k] * xi[k]) * variance[k];
  }
}

/// @param gain  one over what the error's power is expected to be  @param kept  of the path as it was
void move_path(const float *__restrict xr, const float *__restrict xi, const float *__restrict er,
               const float *__restrict ei, const float *__restrict gain, float *__restrict wr, float *__restrict wi,
               float *__restrict variance, int32_t count, float retention, float kept) {
  for (int32_t k = 0; k < count; ++k) {
    const float step = variance[k] * gain[k];
    wr[k] = kept * wr[k] + step * (xr[k] * er[k] + xi[k] * ei[k]);
    wi[k] = kept * wi[k] + step * (xr[k] * ei[k] - xi[k] * er[k]);
    const float known = std::max(0.f, 1 - block_share * step * (xr[k] * xr[k] + xi[k] * xi[k]));
    variance[k] = retention * variance[k] * known + (1 - retention) * (wr[k] * wr[k] + wi[k] * wi[k]);
  }
}

/// Leaves N taps of a response, and notes the highest.
void hold(float *response, int32_t partition, Filter &f) {
  const int32_t n = f.n;
  const float scale = 1 / float(2 * n);
  float height = 0;
  int32_t tap = 0;
  for (int32_t i = 0; i < n; ++i) {
    response[i] *= scale;
    if (const float size = std::fabs(response[i]); size > height) {
      height = size;
      tap = i;
    }
  }
  std::fill_n(response + n, n, 0.f);
  if (partition >= f.partitions)
    return;
  f.height[partition] = height;
  f.tap[partition] = tap;
}

float *variance_of(const Filter &f, int32_t partition) { return f.variance + partition * f.path.stride; }

} // namespace

bool init(const Shape &shape, const FilterKind &kind, Filter &f) {
  f = {};
  f.n = shape.n;
  f.partitions = shape.partitions;
  f.all = shape.partitions + kind.over_partitions;
  f.retention = shape.keep(kind.retention * kind.retention);
  f.noise_scale = kind.noise_scale;
  f.path_keep = shape.keep(path_keep);
  f.noise_keep = shape.keep(0.9);
  f.energy_keep = shape.keep(0.85);
  f.path.stride = f.echo.stride = shape.stride;
  if (!take(f, owned))
    return false;
  reset(f);
  return true;
}

void destroy(Filter &f) { give_back(f, owned); }

void reset(Filter &f) {
  const int32_t values = f.all * f.path.stride;
  std::fill_n(f.path.re, values, 0.f);
  std::fill_n(f.path.im, values, 0.f);
  std::fill_n(f.variance, values, start_variance);
  for (float *spectrum : {f.noise, f.uncertainty, f.echo.re, f.echo.im})
    std::fill_n(spectrum, f.path.stride, 0.f);
  f.energy = 0;
}

void predict(const Reference &reference, Filter &f) {
  const int32_t stride = f.path.stride;
  const SplitSpectrum echo = f.echo[0];
  std::fill_n(echo.re, stride, 0.f);
  std::fill_n(echo.im, stride, 0.f);
  std::fill_n(f.uncertainty, stride, 0.f);
  for (int32_t p = 0; p < f.all; ++p) {
    const SplitSpectrum x = reference_of(reference, p, f), w = f.path[p];
    add_product(x.re, x.im, w.re, w.im, variance_of(f, p), echo.re, echo.im, f.uncertainty, stride);
  }
}

void adapt(const Reference &reference, const SplitSpectrum &error, bool far_heard, Filter &f) {
  const int32_t stride = f.path.stride;
  float gain[QV_MAX_FRAME + vector_width];
  const float kept = far_heard ? f.path_keep : 1;
  const float least = least_noise * float(f.n), weight = 1 - f.noise_keep;
  for (int32_t k = 0; k < stride; ++k) {
    const float power = error.re[k] * error.re[k] + error.im[k] * error.im[k];
    const float unexplained = std::max(power - block_share * f.uncertainty[k], least_share * power);
    f.noise[k] = f.noise_keep * f.noise[k] + weight * unexplained;
    // Never below this frame's own: a talker's onset must not move the path before the average has risen.
    gain[k] = 1 / (f.uncertainty[k] + 2 * f.noise_scale * std::max(f.noise[k], unexplained) + least);
  }
  for (int32_t p = 0; p < f.all; ++p) {
    const SplitSpectrum x = reference_of(reference, p, f), w = f.path[p];
    move_path(x.re, x.im, error.re, error.im, gain, w.re, w.im, variance_of(f, p), stride, f.retention, kept);
  }
}

void constrain(Filter &a, Filter &b, BatchTransform &transform) {
  constexpr int32_t at_once = 4;
  Filter *const filters[at_once] = {&a, &a, &b, &b};
  float response[at_once][2 * QV_MAX_FRAME];
  int32_t partition[at_once];
  SplitSpectrum spectrum[at_once];
  for (int32_t i = 0; i < at_once; ++i) {
    partition[i] = filters[i]->turn++ % filters[i]->all;
    spectrum[i] = filters[i]->path[partition[i]];
  }
  const auto in = [&](int32_t i) { return ConstSplitSpectrum{spectrum[i].re, spectrum[i].im}; };
  transform.inverse({in(0), in(1), in(2), in(3)}, {response[0], response[1], response[2], response[3]});
  for (int32_t i = 0; i < at_once; ++i)
    hold(response[i], partition[i], *filters[i]);
  transform.forward({response[0], response[1], response[2], response[3]},
                    {spectrum[0], spectrum[1], spectrum[2], spectrum[3]});
}

int32_t highest_tap(const Filter &f) {
  const auto p = int32_t(std::max_element(f.height, f.height + f.partitions) - f.height);
  return p * f.n + f.tap[p];
}

void rotate(const SplitSpectrum &turn, Filter &f) {
  for (int32_t p = 0; p < f.all; ++p) {
    const SplitSpectrum w = f.path[p];
    const float *__restrict tr = turn.re, *__restrict ti = turn.im;
    float *__restrict wr = w.re, *__restrict wi = w.im;
    for (int32_t k = 0; k < f.path.stride; ++k) {
      const float re = wr[k] * tr[k] - wi[k] * ti[k], im = wr[k] * ti[k] + wi[k] * tr[k];
      wr[k] = re;
      wi[k] = im;
    }
  }
}

namespace {

void add_power(const SplitSpectrum &w, float *__restrict power, int32_t count) {
  const float *__restrict re = w.re, *__restrict im = w.im;
  for (int32_t k = 0; k < count; ++k)
    power[k] += re[k] * re[k] + im[k] * im[k];
}

void raise(const float *before, const float *own, const float *behind, const float *total, float even,
           float *__restrict variance, int32_t count) {
  constexpr float around = (1 - opened_evenly) / 3;
  for (int32_t k = 0; k < count; ++k)
    variance[k] = std::max(variance[k], around * (before[k] + own[k] + behind[k]) + even * total[k]);
}

/// Moves `count` spectra towards the first by `by`, or away from it; what comes in is `fill`.
void move_by(int32_t by, float *values, int32_t count, int32_t stride, float fill) {
  const int32_t kept = std::max(0, count - std::abs(by)) * stride, all = count * stride;
  if (by > 0) {
    std::memmove(values, values + all - kept, size_t(kept) * sizeof(float));
    std::fill(values + kept, values + all, fill);
  } else {
    std::memmove(values + all - kept, values, size_t(kept) * sizeof(float));
    std::fill(values, values + all - kept, fill);
  }
}

} // namespace

void shift(int32_t frames, Filter &f) {
  const int32_t stride = f.path.stride, own = f.partitions * stride;
  for (float *values : {f.path.re, f.path.im}) {
    move_by(frames, values, f.partitions, stride, 0);
    move_by(frames, values + own, f.all - f.partitions, stride, 0);
  }
  move_by(frames, f.variance, f.partitions, stride, start_variance);
  move_by(frames, f.variance + own, f.all - f.partitions, stride, start_variance);
}

void open(Filter &f, Filter &other) {
  constexpr int32_t most_bins = QV_MAX_FRAME + vector_width;
  const int32_t stride = f.path.stride, last = f.partitions - 1;
  float total[most_bins] = {}, power[3][most_bins]; // of the path; of a partition and its neighbours
  const auto power_at = [&](int32_t p) { return power[std::clamp(p, 0, last) % 3]; };
  for (int32_t p = 0; p <= last; ++p)
    add_power(f.path[p], total, stride);
  const float even = opened_evenly / float(f.partitions);
  for (int32_t p = 0; p <= last; ++p) {
    for (int32_t ahead = p == 0 ? 0 : p + 1; ahead <= std::min(p + 1, last); ++ahead) {
      std::fill_n(power_at(ahead), stride, 0.f);
      add_power(f.path[ahead], power_at(ahead), stride);
    }
    for (Filter *opened : {&f, &other})
      raise(power_at(p - 1), power_at(p), power_at(p + 1), total, even, variance_of(*opened, p), stride);
  }
  for (Filter *opened : {&f, &other})
    for (int32_t k = 0; k < stride; ++k)
      opened->noise[k] *= opened_noise;
}

void follow(const Filter &other, Filter &f) {
  const int32_t values = other.all * f.path.stride;
  for (int32_t i = 0; i < values; ++i) {
    const float re = other.path.re[i] - f.path.re[i], im = other.path.im[i] - f.path.im[i];
    f.variance[i] += 0.5f * (re * re + im * im);
  }
  copy_path(other, f);
}

void copy_path(const Filter &other, Filter &f) {
  const int32_t values = std::min(other.all, f.all) * f.path.stride;
  std::copy_n(other.path.re, values, f.path.re);
  std::copy_n(other.path.im, values, f.path.im);
}

} // namespace qv::state_space
