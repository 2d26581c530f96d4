#include "call/library.h"

#include <cstdlib>
#include <stdexcept>

namespace qv::tool {
namespace {

void require_ok(int32_t status) {
  if (status != QV_VOICE_OK)
    throw std::runtime_error(QV_VOICE_StatusText(status));
}

} // namespace

Library::Library(const Setup &setup) : frame_len_(uint32_t(setup.frame_len)) {
  std::srand(1); // comfort noise draws from rand(): every run gets the numbers of a process's first
  require_ok(QV_VOICE_InitImage(setup.para.data(), setup.rate, setup.frame_len));
}

Library::~Library() { QV_VOICE_Destory(); }

void Library::tx(const int16_t *mic, const int16_t *ref, int16_t *out) {
  require_ok(QV_VOICE_ProcessTx(mic, ref, out, frame_len_));
}

void Library::rx(const int16_t *in, int16_t *out) { require_ok(QV_VOICE_ProcessRx(in, out, frame_len_)); }

QvVoiceTrace Library::trace() const {
  QvVoiceTrace trace{};
  trace.size = sizeof trace;
  require_ok(QV_VOICE_GetTrace(&trace));
  return trace;
}

Latency Library::latency() const {
  int32_t tx = 0, rx = 0;
  require_ok(QV_VOICE_GetLatency(&tx, &rx));
  return {tx, rx};
}

} // namespace qv::tool
