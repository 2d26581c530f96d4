#include "state_space/reference.h"

#include "dsp/arrays.h"
#include "qvvoice/dsp/layout.h"

namespace qv::state_space {

namespace {

constexpr float start_peak = 1000;    // sample units: a call that begins with a whisper does not clip
constexpr float peak_decay = 0.9995f; // per frame: half in half a minute
constexpr float over_share = 0.3f;    // of the peak; 0.15 and 0.5 leave 4 and 6 dB more of a clipped loudspeaker's echo

constexpr auto owned = [](Reference &r, auto visit) {
  visit(r.samples, r.frames * r.n);
  visit(r.power, r.frames);
  for (float **array : {&r.whole.re, &r.whole.im})
    visit(*array, r.partitions * r.whole.stride);
  for (float **array : {&r.over.re, &r.over.im})
    visit(*array, over_partitions * r.over.stride);
  visit(r.over_before, r.n);
};

const int16_t *frame_at(int32_t age, const Reference &r) { return r.samples + (r.newest + age) % r.frames * r.n; }

/// @param block  [2N]
void block_at(int32_t age, const Reference &r, float *block) {
  std::copy_n(frame_at(age + 1, r), r.n, block);
  std::copy_n(frame_at(age, r), r.n, block + r.n);
}

/// What exceeds the limit in the first block that is weighed. @param block  [2N]
void over_block(const Reference &r, float *block) {
  const float limit = over_share * r.peak;
  const int16_t *frame = frame_at(r.delay, r);
  std::copy_n(r.over_before, r.n, block);
  for (int32_t i = 0; i < r.n; ++i) {
    const auto x = float(frame[i]);
    block[r.n + i] = x - std::clamp(x, -limit, limit);
  }
  std::copy_n(block + r.n, r.n, r.over_before);
}

/// A place before another in a ring.
void step_back(int32_t &place, int32_t size) { place = (place + size - 1) % size; }

void take_in(const int16_t *samples, Reference &r) {
  step_back(r.newest, r.frames);
  std::copy_n(samples, r.n, r.samples + r.newest * r.n);
  float peak = 0, power = 0;
  for (int32_t i = 0; i < r.n; ++i) {
    const auto x = float(samples[i]);
    peak = std::max(peak, std::fabs(x));
    power += x * x;
  }
  r.power[r.newest] = power / float(r.n);
  r.peak = std::max(peak, peak_decay * r.peak);
}

void silence(const SplitSpectrum &spectrum, int32_t stride) {
  std::fill_n(spectrum.re, stride, 0.f);
  std::fill_n(spectrum.im, stride, 0.f);
}

} // namespace

bool init(const Shape &shape, Reference &r) {
  r = {};
  r.n = shape.n;
  r.whole.stride = r.over.stride = shape.stride;
  r.partitions = shape.partitions;
  r.frames = shape.most_delay() + shape.partitions + 1;
  r.peak = start_peak;
  return take(r, owned);
}

void destroy(Reference &r) { give_back(r, owned); }

void push(const int16_t *samples, Reference &r, BatchTransform &transform, const SplitSpectrum &now) {
  take_in(samples, r);
  step_back(r.first, r.partitions);
  step_back(r.over_first, over_partitions);
  r.missing[r.first] = false;
  int32_t late = 0;
  while (late < r.partitions && !r.missing[(r.first + late) % r.partitions])
    ++late;
  const bool has_late = late < r.partitions;

  float first[2 * QV_MAX_FRAME], over[2 * QV_MAX_FRAME], newest[2 * QV_MAX_FRAME], late_block[2 * QV_MAX_FRAME];
  block_at(r.delay, r, first);
  over_block(r, over);
  block_at(0, r, newest);
  if (has_late)
    block_at(r.delay + late, r, late_block);
  transform.forward({first, over, newest, has_late ? late_block : nullptr},
                    {r.weighed(0), r.over_weighed(0), now, has_late ? r.weighed(late) : SplitSpectrum{}});
  if (has_late)
    r.missing[(r.first + late) % r.partitions] = false;
}

void set_delay(int32_t delay, Reference &r) {
  const int32_t by = delay - r.delay, kept = std::max(r.partitions - std::abs(by), 0);
  r.delay = delay;
  r.first = ((r.first + by) % r.partitions + r.partitions) % r.partitions;
  for (int32_t p = 0; p < r.partitions; ++p) {
    const bool known = by > 0 ? p < kept : p >= r.partitions - kept;
    if (known)
      continue;
    silence(r.weighed(p), r.whole.stride);
    r.missing[(r.first + p) % r.partitions] = true;
  }
  for (int32_t p = 0; p < over_partitions; ++p)
    silence(r.over[p], r.over.stride);
  std::fill_n(r.over_before, r.n, 0.f);
}

} // namespace qv::state_space
