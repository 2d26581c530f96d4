// The two frame pipelines.

#include <algorithm>
#include <initializer_list>

#include "api/pipeline.h"
#include "dsp/denormals.h"
#include "qvvoice/api/process.h"
#include "qvvoice/qvvoice.h"

namespace {

using qv::api::session;

/// Why a frame cannot be processed; 0 when it can.
int32_t refusal(std::initializer_list<const void *> buffers) {
  if (g_swRet != QV_VOICE_OK)
    return g_swRet;
  if (!session.ready)
    return QV_VOICE_NOT_READY;
  return std::count(buffers.begin(), buffers.end(), nullptr) ? QV_VOICE_BAD_ARGUMENT : QV_VOICE_OK;
}

/// After a first initialisation that converted nothing there is no frame length: nothing to do.
bool has_frames() { return g_stVoiceProcess.swFrameLen > 0; }

} // namespace

int32_t QV_VOICE_ProcessTx(const int16_t *mic, const int16_t *ref, int16_t *out, uint32_t) {
  if (const int32_t status = refusal({mic, ref, out}))
    return status;
  if (!has_frames())
    return QV_VOICE_OK;
  VoiceProcess &st = g_stVoiceProcess;
  ++session.tx_frames;
  // The noise reducer keeps its denormals: its minima must not fall to zero in silence, where ratios of
  // zero to zero would read as speech. The stages behind it hold nothing that small that matters.
  ANR_Process(mic, out, &st.stAnrTx);
  const qv::FlushDenormals scope;
  if (st.stAec.swAecEnable == 1)
    AEC_Process(mic, ref, out, &st.stAec, st.stAnrTx.pfBinGain);
  AGC_Process(out, out, &st.stAgcTx);
  EQ_Process(out, out, &st.stEqTx);
  CNG_Process(out, out, st.stAec.stDtd.swTalkState, st.stAnrTx.stEnhance.pfNoiseBand, st.stAec.stNlp.pfErrBand,
              &st.stCngTx);
  return QV_VOICE_OK;
}

int32_t QV_VOICE_ProcessRx(const int16_t *in, int16_t *out, uint32_t) {
  if (const int32_t status = refusal({in, out}))
    return status;
  if (!has_frames())
    return QV_VOICE_OK;
  VoiceProcess &st = g_stVoiceProcess;
  ++session.rx_frames;
  ANR_Process(in, out, &st.stAnrRx);
  AGC_Process(out, out, &st.stAgcRx);
  EQ_Process(out, out, &st.stEqRx);
  return QV_VOICE_OK;
}

int32_t VOICE_Process(const int16_t *rxIn, int16_t *rxOut, const int16_t *txMic, int16_t *txOut, uint32_t count) {
  if (const int32_t status = refusal({rxIn, rxOut, txMic, txOut}))
    return status;
  QV_VOICE_ProcessRx(rxIn, rxOut, count);
  return QV_VOICE_ProcessTx(txMic, rxOut, txOut, count);
}

void *VOICE_GetPara(void *value) { return value; }
