/// @file para.h  The parameter file's image and the parameter block that it is converted into.
#ifndef QVVOICE_CONFIG_PARA_H
#define QVVOICE_CONFIG_PARA_H

#include <stdint.h>

#include "qvvoice/aec/aec.h"
#include "qvvoice/anr/anr.h"
#include "qvvoice/export.h"
#include "qvvoice/post/agc.h"
#include "qvvoice/post/cng.h"
#include "qvvoice/post/eq.h"

QV_BEGIN_DECLS

typedef int16_t VoiceParaFile[500]; ///< the words of the file

/// One configuration record per module instance; 32-bit slots.
typedef struct VoicePara {
  int16_t swSampleRate; ///< Hz
  int16_t swFrameLen;   ///< N
  AecPara stAec;
  AnrPara stAnrTx;
  AnrPara stAnrRx;
  AgcPara stAgcTx;
  AgcPara stAgcRx;
  EqPara stEqTx;
  EqPara stEqRx;
  CngPara stCngTx;
  CngPara stCngAux; ///< never written
} VoicePara;

extern QV_API VoicePara g_stVoicePara; ///< zero at load; kept across initialisations

/// Converts an image into g_stVoicePara; what it says of the state-space echo canceller is kept beside it, for the next
/// initialisation. No field is checked for range.
/// @param file        [500] words
/// @param sampleRate  8000 or 16000, and word 0 of the image
/// @param frameLen    128 or 160 at 8000 Hz, 256 or 320 at 16000 Hz
/// @return 0, or 2 when one of these does not hold; then nothing has been written
QV_API int32_t VOICE_SetPara_1(const int16_t *file, int32_t sampleRate, int32_t frameLen);

QV_END_DECLS

#endif
