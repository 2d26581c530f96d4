#include "canceller.h"

#include <algorithm>
#include <stdexcept>

#include <fmt/ranges.h>

#include "para/para_file.h"
#include "para/presets.h"

namespace qv::pipewire {

using namespace tool;

namespace {

constexpr int chunk = 256; ///< samples at the graph's rate that are run at once

/// Parameters of a path, or of a family of presets.
std::string name_of(const Settings &s, int32_t frame_len) {
  if (s.parameters.find('/') != std::string::npos)
    return s.parameters;
  const std::string name = para::preset_of(s.parameters, s.rate, frame_len);
  if (!para::find_preset(name))
    throw std::invalid_argument("parameters = \"" + s.parameters + "\": there is no such preset; there are " +
                                fmt::format("{}", fmt::join(para::families(), ", ")) +
                                ", or give the path of a file, with a slash");
  return name;
}

qv_call *make_call(const Settings &s) {
  const qv_call_config config = {sizeof config, s.rate, frame_length(s.rate, s.frame_ms), 1};
  const config::Image words = para::load_valid(name_of(s, config.frame_length)).image;
  qv_call *call = nullptr;
  const int32_t status = qv_call_create(&config, words.data(), &call);
  if (status != QV_VOICE_OK)
    throw std::invalid_argument("parameters = \"" + s.parameters + "\": " + QV_VOICE_StatusText(status) +
                                "; it must be a file for " + std::to_string(s.rate) + " Hz");
  return call;
}

qv_stream *make_stream(qv_call *call) {
  qv_stream *stream = nullptr;
  const int32_t status = qv_stream_create(call, 0, &stream);
  if (status != QV_VOICE_OK)
    throw std::invalid_argument(QV_VOICE_StatusText(status));
  return stream;
}

} // namespace

Canceller::Canceller(const Settings &settings, int graph_rate, int channels)
    : rate_(settings.rate), channels_(channels), mic_down_(graph_rate, rate_, chunk),
      ref_down_(graph_rate, rate_, chunk), up_(rate_, graph_rate, mic_down_.most_out()), call_(make_call(settings)),
      stream_(make_stream(call_.get())), mixed_(chunk), mic_(size_t(mic_down_.most_out())), ref_(mic_.size()),
      ready_(size_t(chunk + up_.most_out())) {}

double Canceller::delay() const {
  int32_t tx = 0, rx = 0;
  qv_stream_latency(stream_.get(), &tx, &rx);
  return mic_down_.delay() + double(tx) / rate_ + up_.delay();
}

const float *Canceller::mix(const float *const signal[], int from, int count) noexcept {
  std::fill_n(mixed_.begin(), count, 0.f);
  int present = 0;
  for (int c = 0; c < channels_; ++c) {
    if (!signal[c])
      continue;
    ++present;
    for (int i = 0; i < count; ++i)
      mixed_[size_t(i)] += signal[c][from + i];
  }
  for (int i = 0; i < count && present > 1; ++i)
    mixed_[size_t(i)] /= float(present);
  return mixed_.data();
}

void Canceller::run_chunk(int from, const float *const mic[], const float *const ref[], float *const out[],
                          int count) noexcept {
  const int n = mic_down_.process(mix(mic, from, count), count, mic_.data());
  ref_down_.process(mix(ref, from, count), count, ref_.data());
  qv_stream_transmit_float(stream_.get(), mic_.data(), ref_.data(), mic_.data(), uint32_t(n));
  left_ += up_.process(mic_.data(), n, &ready_[size_t(left_)]);
  for (int c = 0; c < channels_; ++c)
    if (out[c])
      std::copy_n(ready_.begin(), count, out[c] + from);
  left_ -= count;
  std::copy_n(ready_.begin() + count, left_, ready_.begin());
}

void Canceller::forget() noexcept {
  for (RateConverter *converter : {&mic_down_, &ref_down_, &up_})
    converter->reset();
  qv_stream_reset(stream_.get());
  left_ = 0;
}

void Canceller::run(const float *const mic[], const float *const ref[], float *const out[], int count) noexcept {
  if (restart_.exchange(false))
    forget();
  for (int from = 0; from < count; from += chunk)
    run_chunk(from, mic, ref, out, std::min(chunk, count - from));
}

} // namespace qv::pipewire
