// Coherence suppressor: what is coherent with the microphone but not with the far end passes.

#include <algorithm>
#include <functional>

#include "aec/gain_shape.h"
#include "dsp/sums.h"
#include "qvvoice/aec/nlp.h"
#include "qvvoice/dsp/memory.h"
#include "qvvoice/dsp/vector.h"

namespace {

// Where no source is named, a value is this system's choice; the published output depends on each.

constexpr int32_t first_mean_bin = 11, last_mean_bin = 71; // about 300 to 2000 Hz, where speech has its power

// Mean coherence of the error with the microphone, and incoherence of the far end with it. Near end only: the filter
// took nothing away and the far end is not in the microphone. Two thresholds each, so that the state does not flicker.
constexpr double near_only_error = 0.98, near_only_far = 0.9;
constexpr double echo_error = 0.95, echo_far = 0.8;

constexpr float echo_seen = 0.75f;        // incoherence of the far end below which its minimum notes an echo
constexpr double minimum_rise = 0.0004;   // of the minimum per frame: 0 is forgotten in 2500 frames
constexpr double recovered_margin = 1.05; // a diverged filter is back with 0.2 dB less than the microphone

/// Near end only, echo possible, or in between: the state stays.
void judge_near_end(double error_coherence, double far_incoherence, AecNlpCohState &coh) {
  if (error_coherence > near_only_error && far_incoherence > near_only_far)
    coh.swEchoState = 0;
  else if (error_coherence < echo_error || far_incoherence < echo_far)
    coh.swEchoState = 1;
}

void choose_gain(const float *error_coherence, const float *far_incoherence, float mean_incoherence, int32_t bins,
                 AecNlpCohState &coh) {
  if (mean_incoherence < coh.fXdAvgMin && mean_incoherence < echo_seen)
    coh.fXdAvgMin = mean_incoherence;
  const bool never_coherent = coh.fXdAvgMin == 1.f;
  if (coh.swEchoState == 0)
    std::copy_n(error_coherence, bins, coh.pfHnl);
  else if (never_coherent)
    std::copy_n(far_incoherence, bins, coh.pfHnl);
  else
    for (int32_t k = 0; k < bins; ++k)
      coh.pfHnl[k] = std::min(error_coherence[k], far_incoherence[k]);
  coh.fXdAvgMin = float(std::min(double(coh.fXdAvgMin) + minimum_rise / double(coh.fMult), 1.0));
}

/// A filter whose output has more energy than the microphone has diverged, until it has clearly less.
bool diverged(double near_power, double error_power, AecNlpCohState &coh) {
  if (coh.swDivergeState != 0)
    coh.swDivergeState = !(recovered_margin * error_power < near_power);
  else
    coh.swDivergeState = error_power > near_power;
  return coh.swDivergeState != 0;
}

} // namespace

void AEC_NlpCohCancel(const float *cohErr, const float *incohFar, const float *nearSpec, float *errSpec,
                      const float *nearPsd, const float *errPsd, int32_t lastBin, int32_t specLen,
                      AecNlpCohState *coh) {
  const int32_t bins = lastBin + 1;
  const float mean_coherence = VOICE_VecMean(cohErr, first_mean_bin, last_mean_bin);
  const float mean_incoherence = VOICE_VecMean(incohFar, first_mean_bin, last_mean_bin);
  judge_near_end(mean_coherence, mean_incoherence, *coh);
  choose_gain(cohErr, incohFar, mean_incoherence, bins, *coh);
  const auto [near_power, error_power] = qv::vector_sums<2>({nearPsd, errPsd}, bins);
  if (diverged(near_power, error_power, *coh))
    std::copy_n(nearSpec, specLen, errSpec);
  qv::aec::raise(coh->pfHnl, bins, coh->fSupExp);
  qv::aec::divide_odds(coh->pfHnl, coh->pfBinSupFactor, bins);
}

void AEC_NlpHnlGet(const float *v, int32_t first, int32_t last, int32_t k1, int32_t k2, float *out1, float *out2) {
  const int32_t count = last - first + 1;
  auto *sorted = static_cast<float *>(VOICE_Alloc(count * int32_t(sizeof(float))));
  if (!sorted)
    return;
  std::partial_sort_copy(v + first, v + last + 1, sorted, sorted + count, std::greater<>());
  const auto ranked = [&](int32_t rank) { return sorted[std::clamp(rank, 1, count) - 1]; };
  *out1 = ranked(k1);
  *out2 = ranked(std::max(k1, k2));
  VOICE_Free(sorted);
}
