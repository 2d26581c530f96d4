/// @file reducer.h  The noise reducer over transforms and a filter bank that are handed down.
#pragma once

#include "dsp/services.h"
#include "qvvoice/anr/anr.h"

namespace qv::anr {

/// @return whether memory was there; what could be had is in `state` either way, for ANR_Destroy
bool init(const AnrPara &para, AnrState &state);

/// Takes over the tuning of a record for the same layout, between two frames; the tracked noise stays.
void retune(const AnrPara &para, AnrState &state);

/// Takes a frame in and leaves its gains in `pfBinGain`, without an output: for those who apply the gains themselves. Off:
/// gains of 1.
void follow(const int16_t *in, AnrState &state, const Services &dsp);

/// ANR_Process.
void process(const int16_t *in, int16_t *out, AnrState &state, const Services &dsp);

} // namespace qv::anr
