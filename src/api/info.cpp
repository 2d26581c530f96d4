// What an integrator asks: version, status text, latency, trace.

#include "api/process_call.h"
#include "api/trace_record.h"

using qv::api::process_call;

const char *QV_VOICE_Version(void) { return QVVOICE_VERSION; }

const char *QV_VOICE_StatusText(int32_t status) {
  switch (status) {
  case QV_VOICE_OK:
    return "success";
  case QV_VOICE_NO_FILE:
    return "the parameter file cannot be opened";
  case QV_VOICE_REFUSED:
    return "sample rate or frame length not served, parameters for another one, or a running call told to switch the "
           "state-space echo canceller on or off";
  case QV_VOICE_SHORT_FILE:
    return "the parameter file holds fewer than 500 words (1000 bytes)";
  case QV_VOICE_NOT_READY:
    return "not initialised";
  case QV_VOICE_BAD_ARGUMENT:
    return "a null pointer, or a record without its size";
  case QV_VOICE_OUT_OF_MEMORY:
    return "out of memory during initialisation";
  default:
    return "unknown status";
  }
}

int32_t QV_VOICE_GetLatency(int32_t *tx, int32_t *rx) {
  if (!tx || !rx)
    return QV_VOICE_BAD_ARGUMENT;
  if (!process_call.ready())
    return QV_VOICE_NOT_READY;
  const qv::Latency latency = process_call.latency();
  *tx = latency.tx;
  *rx = latency.rx;
  return QV_VOICE_OK;
}

int32_t QV_VOICE_GetTrace(QvVoiceTrace *trace) {
  if (!qv::api::has_size(trace))
    return QV_VOICE_BAD_ARGUMENT;
  if (!process_call.ready())
    return QV_VOICE_NOT_READY;
  qv::api::fill(process_call.trace(), *trace);
  return QV_VOICE_OK;
}
