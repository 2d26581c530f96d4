#include "dsp/batch.h"

#include <cstring>

#include "dsp/kissfft_lanes.h"
#include "qvvoice/dsp/layout.h"
#include "qvvoice/dsp/memory.h"

namespace qv {

namespace {

using Lanes = QvLanes;
constexpr int32_t lane_count = 4;

struct Square {
  Lanes row[lane_count];
};

Square transposed(const Square &x) {
  const Lanes low01 = __builtin_shufflevector(x.row[0], x.row[1], 0, 4, 1, 5);
  const Lanes high01 = __builtin_shufflevector(x.row[0], x.row[1], 2, 6, 3, 7);
  const Lanes low23 = __builtin_shufflevector(x.row[2], x.row[3], 0, 4, 1, 5);
  const Lanes high23 = __builtin_shufflevector(x.row[2], x.row[3], 2, 6, 3, 7);
  return {{__builtin_shufflevector(low01, low23, 0, 1, 4, 5), __builtin_shufflevector(low01, low23, 2, 3, 6, 7),
           __builtin_shufflevector(high01, high23, 0, 1, 4, 5), __builtin_shufflevector(high01, high23, 2, 3, 6, 7)}};
}

/// Elements at .. at + 3 of four arrays, into every `stride`-th vector.
void to_lanes(const float *const (&from)[lane_count], int32_t at, Lanes *to, int32_t stride) {
  Square x;
  for (int32_t lane = 0; lane < lane_count; ++lane)
    std::memcpy(&x.row[lane], from[lane] + at, sizeof(Lanes));
  x = transposed(x);
  for (int32_t i = 0; i < lane_count; ++i)
    to[i * stride] = x.row[i];
}

/// The way back.
void from_lanes(const Lanes *from, int32_t stride, float *const (&to)[lane_count], int32_t at) {
  Square x;
  for (int32_t i = 0; i < lane_count; ++i)
    x.row[i] = from[i * stride];
  x = transposed(x);
  for (int32_t lane = 0; lane < lane_count; ++lane)
    std::memcpy(to[lane] + at, &x.row[lane], sizeof(Lanes));
}

kiss_fft_cpx *bins(Lanes *lanes) { return reinterpret_cast<kiss_fft_cpx *>(lanes); }

/// For every lane the one whose signal it carries: its own, or that of the first used lane, which is then computed and
/// written twice with the same bits.
struct Carried {
  int32_t lane[lane_count];
  bool any;
};

template <class Used> Carried carried(Used used) {
  int32_t first = 0;
  while (first < lane_count && !used(first))
    ++first;
  Carried result{{}, first < lane_count};
  for (int32_t lane = 0; lane < lane_count; ++lane)
    result.lane[lane] = used(lane) ? lane : first;
  return result;
}

} // namespace

bool BatchTransform::init(int32_t length, Ways ways) {
  destroy();
  if (length <= 0 || length > 2 * QV_MAX_FRAME || length % (2 * lane_count) != 0 ||
      kiss_fft_next_fast_size(length) != length)
    return false;
  size_t state = 0;
  kiss_fftr_alloc(length, 0, nullptr, &state);
  const size_t buffer = size_t(length + 2) * sizeof(Lanes);
  const size_t states = ways == Ways::both ? 2 * state : state;
  block_ = VOICE_Alloc(int32_t(buffer + states + alignof(Lanes)));
  if (!block_)
    return false;
  // The heap of a 32-bit system aligns to 8 bytes.
  const auto misaligned = reinterpret_cast<uintptr_t>(block_) % alignof(Lanes);
  char *const begin = static_cast<char *>(block_) + (misaligned ? alignof(Lanes) - misaligned : 0);
  lanes_ = reinterpret_cast<Lanes *>(begin);
  inverse_ = kiss_fftr_alloc(length, 1, begin + buffer, &state);
  if (ways == Ways::both)
    forward_ = kiss_fftr_alloc(length, 0, begin + buffer + state, &state);
  length_ = length;
  return true;
}

void BatchTransform::destroy() {
  VOICE_Free(block_);
  *this = {};
}

// kissfft has read all of its input when it writes the first of its output: both are the same memory.

void BatchTransform::forward(const float *const (&in)[4], const SplitSpectrum (&out)[4]) {
  const Carried from = carried([&](int32_t lane) { return in[lane] != nullptr; });
  if (!from.any)
    return;
  const float *time[lane_count];
  float *re[lane_count], *im[lane_count];
  for (int32_t lane = 0; lane < lane_count; ++lane) {
    time[lane] = in[from.lane[lane]];
    re[lane] = out[from.lane[lane]].re;
    im[lane] = out[from.lane[lane]].im;
  }
  for (int32_t t = 0; t < length_; t += lane_count)
    to_lanes(time, t, lanes_ + t, 1);
  kiss_fftr(forward_, lanes_, bins(lanes_));
  const int32_t nyquist = length_ / 2;
  for (int32_t k = 0; k < nyquist; k += lane_count) {
    from_lanes(lanes_ + 2 * k, 2, re, k);
    from_lanes(lanes_ + 2 * k + 1, 2, im, k);
  }
  for (int32_t lane = 0; lane < lane_count; ++lane) {
    re[lane][nyquist] = lanes_[length_][lane];
    im[lane][nyquist] = 0;
  }
}

void BatchTransform::inverse(const ConstSplitSpectrum (&in)[4], float *const (&out)[4]) {
  const Carried from = carried([&](int32_t lane) { return in[lane].re != nullptr; });
  if (!from.any)
    return;
  const float *re[lane_count], *im[lane_count];
  float *time[lane_count];
  const int32_t nyquist = length_ / 2;
  for (int32_t lane = 0; lane < lane_count; ++lane) {
    re[lane] = in[from.lane[lane]].re;
    im[lane] = in[from.lane[lane]].im;
    time[lane] = out[from.lane[lane]];
    lanes_[length_][lane] = re[lane][nyquist];
  }
  for (int32_t k = 0; k < nyquist; k += lane_count) {
    to_lanes(re, k, lanes_ + 2 * k, 2);
    to_lanes(im, k, lanes_ + 2 * k + 1, 2);
  }
  kiss_fftri(inverse_, bins(lanes_), lanes_);
  for (int32_t t = 0; t < length_; t += lane_count)
    from_lanes(lanes_ + t, 1, time, t);
}

} // namespace qv
