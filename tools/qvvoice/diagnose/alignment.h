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
  double window;                  ///< s, of the search that found them
};

/// Points that agree with one at least a whole window away, or with a strong one beside them; chance peaks agree with
/// windows that overlap only. @param window  s, of the search
std::vector<DelayPoint> agreeing(const std::vector<DelayPoint> &points, double window);

/// Looks for the echo at one clock for both; where that leaves windows without it, in shorter windows, then at clocks
/// up to 5 % apart and at the ratios of the usual sample rates; and where there is none, from -3 to 6 s.
/// @param mic,ref  of one length
Alignment align(const Signal &mic, const Signal &ref, int rate);

} // namespace qv::tool::diagnose
