// The frames of the process's call.

#include <algorithm>
#include <initializer_list>

#include "api/process_call.h"

namespace {

using qv::api::process_call;

/// Why a frame cannot be processed; 0 when it can.
int32_t refusal(std::initializer_list<const void *> buffers) {
  if (g_swRet != QV_VOICE_OK)
    return g_swRet;
  if (!process_call.ready())
    return QV_VOICE_NOT_READY;
  return std::count(buffers.begin(), buffers.end(), nullptr) ? QV_VOICE_BAD_ARGUMENT : QV_VOICE_OK;
}

/// After a first initialisation that converted nothing there is no frame length: nothing to do.
bool has_frames() { return process_call.frame_len() > 0; }

} // namespace

int32_t QV_VOICE_ProcessTx(const int16_t *mic, const int16_t *ref, int16_t *out, uint32_t) {
  if (const int32_t status = refusal({mic, ref, out}))
    return status;
  if (has_frames())
    process_call.transmit(mic, ref, out);
  return QV_VOICE_OK;
}

int32_t QV_VOICE_ProcessRx(const int16_t *in, int16_t *out, uint32_t) {
  if (const int32_t status = refusal({in, out}))
    return status;
  if (has_frames())
    process_call.receive(in, out);
  return QV_VOICE_OK;
}

int32_t VOICE_Process(const int16_t *rxIn, int16_t *rxOut, const int16_t *txMic, int16_t *txOut, uint32_t count) {
  if (const int32_t status = refusal({rxIn, rxOut, txMic, txOut}))
    return status;
  QV_VOICE_ProcessRx(rxIn, rxOut, count);
  return QV_VOICE_ProcessTx(txMic, rxOut, txOut, count);
}

void *VOICE_GetPara(void *value) { return value; }
