#include "qvvoice/config/para.h"

#include "config/convert.h"
#include "config/fields.h"

VoicePara g_stVoicePara;
qv::state_space::Tuning qv::config::process_echo_control;

static_assert(sizeof(VoicePara) ==
                  4 + sizeof(AecPara) + 2 * (sizeof(AnrPara) + sizeof(AgcPara) + sizeof(EqPara) + sizeof(CngPara)),
              "the records of the parameter block follow each other without gaps");

namespace {

using namespace qv;
using namespace qv::config;

void set_sizes(int32_t rate, int32_t frame_len, VoicePara &block) {
  const int32_t bands = band_count(rate);
  block.swSampleRate = int16_t(rate);
  block.swFrameLen = int16_t(frame_len);

  AecPara &aec = block.stAec;
  aec.swFrameLen = aec.stMdf.swFrameLen = aec.stNlp.swFrameLen = aec.stDtd.swFrameLen = frame_len;
  aec.stNlp.swBandNum = aec.stDtd.swBandNum = bands;
  aec.stDelay.swBlockLen = frame_len / blocks_per_frame;
  aec.stMdf.swFilterLen = filter_frames * frame_len;
  aec.stMdf.swSampleRate = rate;

  for (AnrPara *anr : {&block.stAnrTx, &block.stAnrRx}) {
    anr->swSampleRate = rate;
    anr->swFrameLen = frame_len;
    anr->swBandNum = bands;
  }
  for (AgcPara *agc : {&block.stAgcTx, &block.stAgcRx}) {
    agc->swSampleRate = rate;
    agc->swFrameLen = frame_len;
  }
  block.stEqTx.swFrameLen = block.stEqRx.swFrameLen = int16_t(frame_len);
  block.stCngTx.swSampleRate = rate;
  block.stCngTx.swFrameLen = frame_len;
}

/// Tuning that the file does not carry.
void set_fixed_tuning(VoicePara &block) {
  block.stAec.stDelay.swHistorySize = delay_candidates;
  block.stAec.stDelay.swLookahead = 0;
  block.stAec.stDtd.swFarSilentHang = 5; // frames
  for (AnrPara *anr : {&block.stAnrTx, &block.stAnrRx}) {
    anr->swSubWinNum = 2;
    anr->fAvgSnrMin = 0.05f;  // -13 dB
    anr->fAvgSnrMax = 0.516f; // -2.9 dB
    anr->fGainMin = 0.1f;     // -20 dB
  }
  block.stCngTx.fLevelSmooth = 0.92f;
  block.stCngTx.fEchoWeight = 0.3f;
}

} // namespace

bool qv::config::convert(const int16_t *file, int32_t rate, int32_t frame_len, Parameters &parameters) {
  if (!layout_served(rate, frame_len) || file[rate_word] != rate)
    return false;
  store_fields(Words(file, word_count), parameters);
  set_sizes(rate, frame_len, parameters.block);
  set_fixed_tuning(parameters.block);
  return true;
}

int32_t VOICE_SetPara_1(const int16_t *file, int32_t sampleRate, int32_t frameLen) {
  Parameters parameters{g_stVoicePara, process_echo_control};
  if (!convert(file, sampleRate, frameLen, parameters))
    return 2;
  g_stVoicePara = parameters.block;
  process_echo_control = parameters.echo_control;
  return 0;
}
