#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "dsp/arrays.h"
#include "dsp/bins.h"
#include "dsp/fma.h"
#include "dsp/layout.h"
#include "dsp/sample.h"
#include "dsp/smoothing.h"
#include "post/stages.h"

namespace {

constexpr float level_cap = 4.f;                      // amplitude per band: noise for comfort is never loud
constexpr float rand_scale = 0x1p-31f;                // rand() gives 0 .. 2^31 - 1
constexpr float band_centre = 0.4f, band_side = 0.3f; // smoothing of the error powers across bands

static_assert(RAND_MAX == 0x7fffffff);

constexpr auto owned = [](CngState &st, auto visit) {
  const int32_t n = st.swFrameLen;
  for (float **array : {&st.pfSpectrum, &st.pfNoiseBuf, &st.pfFrame})
    visit(*array, 2 * n);
  visit(st.pfOverlap, n);
  visit(st.pfWindow, 2 * n);
  for (float **array : {&st.pfBandLevel, &st.pfErrBandSmooth})
    visit(*array, n + 1);
};

int32_t band_count(const CngState &st) {
  return qv::band_count(st.swFrameLen <= qv::longest_narrow_frame ? qv::narrow_rate : qv::wide_rate);
}

/// Follows the amplitude of noise and residual echo in each band.
void follow_level(CngState &st, const float *noise_band, const float *err_band) {
  const int32_t bands = band_count(st);
  qv::smooth_across_bands<float>(err_band, st.pfErrBandSmooth, bands, band_centre, band_side);
  for (int32_t b = 0; b < bands; ++b) {
    const float power = qv::fma(st.fEchoWeight, st.pfErrBandSmooth[b], noise_band[b]);
    const double kept = st.fLevelSmooth * st.pfBandLevel[b];
    const double weight = 1.f - st.fLevelSmooth;
    const auto level = float(qv::fma(weight, std::sqrt(double(power)), kept));
    st.pfBandLevel[b] = level < level_cap ? level : level_cap;
  }
}

/// The next 2N samples of windowed source noise, overlapping the last by half.
void draw_noise(CngState &st, qv::post::NoiseSource &source) {
  const int32_t n = st.swFrameLen;
  const float amplitude = st.fNoiseLevel * st.fNoiseGain;
  std::copy_n(st.pfNoiseBuf + n, n, st.pfNoiseBuf);
  int32_t drawn[QV_MAX_FRAME];
  source.draw(drawn, n);
  for (int32_t i = 0; i < n; ++i)
    st.pfNoiseBuf[n + i] = float(drawn[i]) * amplitude * rand_scale;
  for (int32_t i = 0; i < 2 * n; ++i)
    st.pfFrame[i] = st.pfNoiseBuf[i] * st.pfWindow[i];
}

/// Gives the source the shape of the band levels. The source has a mean, which the window spreads
/// over bins 0 and 1 only: both are cleared.
void shape_noise(CngState &st, const qv::Services &dsp) {
  const int32_t n = st.swFrameLen;
  float amplitude[QV_MAX_FRAME + 1] = {};
  compute_bins(dsp.bank, st.pfBandLevel, amplitude);
  dsp.forward(st.pfFrame, st.pfSpectrum, 2 * n);
  qv::apply_bin_gains(st.pfSpectrum, amplitude, n);
  std::fill_n(st.pfSpectrum, 3, 0.f);
  st.pfSpectrum[2 * n - 1] = 0;
  dsp.inverse(st.pfSpectrum, st.pfFrame, 2 * n);
}

} // namespace

namespace qv::post {

void NoiseSource::draw(int32_t *out, int32_t count) {
  if (seed == 0)
    std::generate_n(out, count, std::rand);
  else
    std::generate_n(out, count, [this] { return int32_t(seed = uint32_t(seed * 16807ull % 2147483647)); });
}

bool init(const CngPara &para, CngState &state) {
  state.swSampleRate = para.swSampleRate;
  state.swFrameLen = para.swFrameLen;
  state.swFftLen = 2 * para.swFrameLen;
  state.swActive = 0;
  retune(para, state);
  if (!take(state, owned))
    return false;
  hann_window(state.pfWindow, state.swFftLen);
  return true;
}

void retune(const CngPara &para, CngState &state) {
  state.swCngEnable = para.swCngEnable;
  state.fNoiseLevel = para.fNoiseLevel;
  state.fNoiseGain = para.fNoiseGain;
  state.fLevelSmooth = para.fLevelSmooth;
  state.fEchoWeight = para.fEchoWeight;
}

void process(const int16_t *in, int16_t *out, int32_t talk_state, const float *noise_band, const float *err_band,
             CngState &state, const Services &dsp, NoiseSource &source) {
  const int32_t n = state.swFrameLen;
  if (state.swCngEnable == 0) {
    std::copy_n(in, n, out);
    return;
  }
  state.swActive = talk_state != 0;
  follow_level(state, noise_band, err_band);
  if (!state.swActive) {
    std::copy_n(in, n, out);
    return;
  }
  draw_noise(state, source);
  shape_noise(state, dsp);
  to_samples(out, n, [&](int32_t i) { return float(in[i]) + state.pfFrame[i] + state.pfOverlap[i]; });
  std::copy_n(state.pfFrame + n, n, state.pfOverlap);
}

} // namespace qv::post

void CNG_Init(const CngPara *para, CngState *state) { qv::post::init(*para, *state); }

void CNG_Destroy(CngState *state) { qv::give_back(*state, owned); }

void CNG_Process(const int16_t *in, int16_t *out, int32_t talkState, const float *noiseBand, const float *errBand,
                 CngState *state) {
  qv::post::NoiseSource shared;
  qv::post::process(in, out, talkState, noiseBand, errBand, *state, qv::process_services, shared);
}
