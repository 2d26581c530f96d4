#include "signal/resample.h"

#include <array>
#include <stdexcept>

#include <fmt/format.h>
#include <soxr.h>

namespace qv::tool {
namespace {

void require_done(const char *error, int from, int to) {
  if (error)
    throw std::runtime_error(fmt::format("conversion from {} to {} Hz failed: {}", from, to, error));
}

} // namespace

void Resampler::Deleter::operator()(void *resampler) const { soxr_delete(static_cast<soxr_t>(resampler)); }

Resampler::Resampler(int from, int to) : from_(from), to_(to) {
  const soxr_io_spec_t types = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
  soxr_error_t error = nullptr;
  resampler_.reset(soxr_create(from, to, 1, &error, &types, &quality, nullptr));
  require_done(error, from, to);
}

Resampler::Moved Resampler::process(SignalView in, std::span<double> out) {
  Moved moved{};
  require_done(soxr_process(static_cast<soxr_t>(resampler_.get()), in.empty() ? nullptr : in.data(), in.size(),
                            &moved.taken, out.data(), out.size(), &moved.written),
               from_, to_);
  return moved;
}

Signal resample(SignalView signal, int from, int to) {
  Resampler resampler(from, to);
  Signal out;
  std::array<double, 4096> block;
  for (bool more = true; more;) {
    const bool ended = signal.empty();
    const auto [taken, written] = resampler.process(signal, block);
    signal = signal.subspan(taken);
    out.insert(out.end(), block.begin(), block.begin() + std::ptrdiff_t(written));
    more = !ended || written > 0;
  }
  return out;
}

} // namespace qv::tool
