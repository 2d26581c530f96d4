#include "call/library.h"

#include <stdexcept>

namespace qv::tool {
namespace {

void require_ok(int32_t status) {
  if (status != QV_VOICE_OK)
    throw std::runtime_error(QV_VOICE_StatusText(status));
}

} // namespace

Library::Library(const Setup &setup) {
  const qv_call_config config{sizeof config, setup.rate, setup.frame_len, 0};
  qv_call *call = nullptr;
  require_ok(qv_call_create(&config, setup.para.data(), &call));
  call_.reset(call);
}

void Library::tx(const int16_t *mic, const int16_t *ref, int16_t *out) {
  require_ok(qv_call_transmit(call_.get(), mic, ref, out));
}

void Library::rx(const int16_t *in, int16_t *out) { require_ok(qv_call_receive(call_.get(), in, out)); }

QvVoiceTrace Library::trace() const {
  QvVoiceTrace trace{};
  trace.size = sizeof trace;
  require_ok(qv_call_trace(call_.get(), &trace));
  return trace;
}

Latency Library::latency() const {
  int32_t tx = 0, rx = 0;
  require_ok(qv_call_latency(call_.get(), &tx, &rx));
  return {tx, rx};
}

} // namespace qv::tool
