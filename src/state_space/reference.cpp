#include "state_space/reference.h"

#include "dsp/arrays.h"
#include "qvvoice/dsp/layout.h"

namespace qv::state_space {

namespace {

constexpr float start_peak = 1000;   // sample units: a call that begins with a whisper does not clip
constexpr float peak_decay = 0.9995; // per frame: half in half a minute
constexpr float over_share = 0.3f;   // of the peak; 0.15 and 0.5 leave 4 and 6 dB more of a clipped loudspeaker's echo

constexpr auto owned = [](Reference &r, auto visit) {
  for (float **array : {&r.whole.re, &r.whole.im})
    visit(*array, r.frames * r.whole.stride);
  for (float **array : {&r.over.re, &r.over.im})
    visit(*array, r.over_frames * r.over.stride);
  visit(r.power, r.frames);
  visit(r.previous, r.n);
  visit(r.over_previous, r.n);
};

} // namespace

bool init(const Shape &shape, Reference &r) {
  r = {};
  r.n = shape.n;
  r.whole.stride = r.over.stride = shape.stride;
  r.frames = shape.delays + shape.partitions;
  r.over_frames = shape.delays + over_partitions;
  r.peak = start_peak;
  return take(r, owned);
}

void destroy(Reference &r) { give_back(r, owned); }

void push(const int16_t *samples, Reference &r, BatchTransform &transform) {
  const int32_t n = r.n;
  float whole[2 * QV_MAX_FRAME], over[2 * QV_MAX_FRAME];
  float peak = 0, power = 0;
  for (int32_t i = 0; i < n; ++i) {
    const auto x = float(samples[i]);
    peak = std::max(peak, std::fabs(x));
    power += x * x;
    whole[n + i] = x;
  }
  r.peak = std::max(peak, peak_decay * r.peak);
  const float limit = over_share * r.peak;
  for (int32_t i = 0; i < n; ++i)
    over[n + i] = whole[n + i] - std::clamp(whole[n + i], -limit, limit);
  std::copy_n(r.previous, n, whole);
  std::copy_n(r.over_previous, n, over);
  std::copy_n(whole + n, n, r.previous);
  std::copy_n(over + n, n, r.over_previous);
  r.newest = (r.newest + r.frames - 1) % r.frames;
  r.over_newest = (r.over_newest + r.over_frames - 1) % r.over_frames;
  r.power[r.newest] = power / float(n);
  transform.forward({whole, over, nullptr, nullptr}, {r.at(0), r.over_at(0), {}, {}});
}

} // namespace qv::state_space
