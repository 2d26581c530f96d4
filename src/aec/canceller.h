/// @file canceller.h  The echo canceller's stages over transforms and a filter bank that are handed down.
///
/// The exported functions of the same stages (qvvoice/aec/) work with those of the process.
#pragma once

#include "aec/frame_report.h"
#include "dsp/services.h"
#include "qvvoice/aec/aec.h"

namespace qv::aec {

/// @return whether memory was there; what could be had is in `st` either way, for AEC_Destroy
bool init(const AecPara &para, AecState &st, const FilterBank &bank);
bool init_delay(const AecDelayPara &para, AecDelayState &st);
bool init_filter(const AecMdfPara &para, AecMdfState &st);
bool init_suppressor(const AecNlpPara &para, AecNlpState &st, const FilterBank &bank);

/// Takes over the tuning of a block for the same layout, between two frames. What has been learnt stays: filter,
/// tracked delay, averages, talk state. A fixed delay (tracking off) takes its new value.
void retune(const AecPara &para, AecState &st, const FilterBank &bank);
void retune_suppressor(const AecNlpPara &para, AecNlpState &st, const FilterBank &bank);
void retune_detector(const AecDtdPara &para, AecDtdState &st);

/// AEC_Process; what the stages did is noted in `report`.
void process(const int16_t *mic, const int16_t *ref, int16_t *out, AecState &st, const float *anr_gain,
             const Services &dsp, FrameReport &report);

/// AEC_DelayProcess.
int32_t track(const int16_t *mic, const int16_t *ref, int32_t n, AecDelayState &st, const Services &dsp);

/// AEC_MdfProcess.
void filter(const int16_t *mic, const int16_t *ref, int16_t *out, AecMdfState &st, const Services &dsp,
            FrameReport &report);

/// AEC_NlpProcess.
void suppress(const int16_t *mic, const int16_t *far, int16_t *io, AecDtdState &dtd, AecNlpState &st,
              const float *anr_gain, float leak, const Services &dsp, FrameReport &report);

} // namespace qv::aec
