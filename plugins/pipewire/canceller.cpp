#include "canceller.h"

#include <algorithm>
#include <stdexcept>

#include "packed_presets.h"

namespace qv::pipewire {

namespace {

constexpr int chunk = 256; ///< samples at the graph's rate that are run at once

/// How a preset's name ends.
std::string layout_of(const Settings &s) {
  std::string layout = "-";
  return layout.append(std::to_string(s.rate / 1000)).append("k-").append(std::to_string(s.frame_ms)).append("ms");
}

const PackedPreset &find_preset(const Settings &s) {
  const std::string layout = layout_of(s);
  std::string names;
  for (const PackedPreset &preset : packed_presets()) {
    if (preset.name == s.parameters + layout)
      return preset;
    if (preset.name.ends_with(layout))
      names += (names.empty() ? "" : ", ") + std::string(preset.name.substr(0, preset.name.size() - layout.size()));
  }
  throw std::invalid_argument("parameters = \"" + s.parameters + "\": there is no such preset; there are " + names +
                              ", or give the path of a packed file, with a slash");
}

qv_call *make_call(const Settings &s) {
  const qv_call_config config = {sizeof config, s.rate, s.rate * s.frame_ms / 1000, 1};
  qv_call *call = nullptr;
  if (s.parameters.find('/') != std::string::npos) {
    const int32_t status = qv_call_create_from_file(&config, s.parameters.c_str(), &call);
    if (status != QV_VOICE_OK)
      throw std::invalid_argument("parameters = \"" + s.parameters + "\": " + QV_VOICE_StatusText(status) +
                                  "; it must be a file that `qvvoice para pack` has written for " +
                                  std::to_string(s.rate) + " Hz");
    return call;
  }
  const auto &bytes = find_preset(s).bytes;
  int16_t words[500];
  for (size_t i = 0; i < std::size(words); ++i)
    words[i] = int16_t(bytes[2 * i] | bytes[2 * i + 1] << 8);
  const int32_t status = qv_call_create(&config, words, &call);
  if (status != QV_VOICE_OK)
    throw std::invalid_argument(QV_VOICE_StatusText(status));
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
