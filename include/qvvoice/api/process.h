/// @file process.h  The processing-state record: everything that a call of the library remembers.
#ifndef QVVOICE_API_PROCESS_H
#define QVVOICE_API_PROCESS_H

#include <stdint.h>

#include "qvvoice/aec/aec.h"
#include "qvvoice/anr/anr.h"
#include "qvvoice/export.h"
#include "qvvoice/post/agc.h"
#include "qvvoice/post/cng.h"
#include "qvvoice/post/eq.h"

QV_BEGIN_DECLS

typedef struct VoiceProcess {
  int16_t swSampleRate; ///< Hz
  int16_t swFrameLen;   ///< N
  AecState stAec;
  AnrState stAnrTx;
  AnrState stAnrRx;
  AgcState stAgcTx;
  AgcState stAgcRx;
  EqState stEqTx;
  EqState stEqRx;
  CngState stCngTx;
  CngState stCngAux; ///< set up and released, never processed
} VoiceProcess;

extern QV_API VoiceProcess g_stVoiceProcess;
extern QV_API int32_t g_swRet; ///< stored status (QvVoiceStatus), 0 at load

QV_END_DECLS

#endif
