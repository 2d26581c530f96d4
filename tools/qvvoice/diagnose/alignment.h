/// @file alignment.h  Reference and microphone on one clock, and the delay between them.
#pragma once

#include <vector>

#include "signal/correlation.h"
#include "signal/signal.h"

namespace qv::tool::diagnose {

struct Alignment {
  double clock; ///< samples of the microphone per sample of the reference for the same sound; 1 within 100 ppm
  Signal ref;   ///< on the microphone's clock, as long as the microphone
  std::vector<DelayPoint> points; ///< behind that reference; empty unless windows apart from each other agree
};

/// Looks for the echo at one clock for both, then, where that leaves windows without it, at clocks up to 5 % apart and
/// at the ratios of the usual sample rates.
/// @param mic,ref  of one length
Alignment align(const Signal &mic, const Signal &ref, int rate);

} // namespace qv::tool::diagnose
