/// @file talker.h  Does the near end talk while the far end does? A test that gathers evidence over bands and frames
/// (Page, "Continuous inspection schemes", Biometrika 41, 1954).
#pragma once

#include "state_space/bands.h"

namespace qv::state_space {

struct TalkerTest {
  float threshold = 0; ///< evidence from which somebody talks
  float bias = 0;      ///< evidence that a frame without a talker may bring
  float gathered = 0;
  int32_t lasting = 0; ///< frames for which somebody has talked
  bool talking = false;
};

/// One frame's evidence, log likelihood ratios summed over the bands. At most 5 a band: no single band decides.
struct TalkerEvidence {
  float residual = 0;   ///< against the echo that is expected to be left
  float whole_echo = 0; ///< against an echo that is not cancelled at all: what even a changed path does not explain

  /// So many bands that a third of a frame's decisive evidence comes from each.
  int32_t bands() const { return int32_t(residual / 4); }
};

/// @param error,residual,echo,background  [bands] mean powers per bin
TalkerEvidence evidence_of(const Bands &bands, const float *error, const float *residual, const float *echo,
                           const float *background);

/// @param echo_like  whether the frame looks like echo: then it is no evidence that the talker goes on
/// @param denied     whether the path has surely changed: what stands out is echo
void gather(const TalkerEvidence &evidence, bool echo_like, bool denied, TalkerTest &test);

} // namespace qv::state_space
