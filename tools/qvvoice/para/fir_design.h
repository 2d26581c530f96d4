/// @file fir_design.h  Linear-phase filters from points of their magnitude response.
#pragma once

#include <span>
#include <vector>

#include "qvvoice/post/eq.h"

namespace qv::tool::para {

inline constexpr int max_taps = 2 * EQ_MAX_HALF_TAPS - 1;

struct ResponsePoint {
  double hz;
  double db;
};

/// Windowed frequency sampling: the wanted magnitude, linear in dB between the points and constant
/// beyond them, is sampled densely, transformed into its symmetric impulse response, cut to `taps` and
/// weighted with a Hamming window. The window method of A. V. Oppenheim and R. W. Schafer,
/// Discrete-Time Signal Processing, section "Design of FIR filters by windowing".
/// @param points  at least one, in rising frequency, 0 .. rate / 2
/// @param taps    odd, 1 .. max_taps; a bend of the response is smoothed over about 2 rate / taps Hz
/// @return [(taps + 1) / 2] half of the response, the centre last
std::vector<double> design_fir(std::span<const ResponsePoint> points, int taps, int rate);

/// Magnitude response at a frequency, dB; -200 at a zero.
/// @param half  half of a symmetric response, the centre last
double response_db(std::span<const double> half, double hz, int rate);

/// The greatest of the magnitude response and where it lies.
ResponsePoint response_peak(std::span<const double> half, int rate);

} // namespace qv::tool::para
