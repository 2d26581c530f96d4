/// @file echo_model.h  What of the microphone comes from the reference, estimated from the recording alone.
#pragma once

#include <optional>
#include <vector>

#include "diagnose/blocks.h"
#include "signal/signal.h"

namespace qv::tool::diagnose {

/// One second of the recording.
struct EchoWindow {
  double time;     ///< s, its middle
  double coherent; ///< share of the microphone's power that follows the reference linearly, 0..1
  /// Power of the echo over that of a typical echo of the same reference, dB; nothing without a clear echo.
  std::optional<double> gain_db;
  std::vector<double> transfer; ///< squared transfer of the echo path per bin of 1/64 ms; 0 where it is not clear
};

/// 64 ms of the recording, every 32 ms. Powers are those under a Hann window, full scale 1.
struct EchoBlock {
  double time;      ///< s, its middle
  double ref;       ///< power of the reference that arrives now
  double mic;       ///< power of the microphone
  double predicted; ///< power of the echo that the reference should make, up to 64 ms of tail
};

struct EchoModel {
  std::vector<EchoWindow> windows;
  std::vector<EchoBlock> blocks;
  bool found; ///< some window has a clear echo; without it `predicted` is 0
};

/// Cross-spectra of microphone and aligned reference, averaged over a second, give the transfer of the echo
/// path and the coherent part (Bendat and Piersol 2010, chapter 6).
/// @param points  the delay over time; the nearest one holds. Empty: no alignment
EchoModel model_echo(SignalView mic, SignalView ref, int rate, const std::vector<DelayPoint> &points);

/// Power of another signal in the blocks of a model, such as the output.
std::vector<double> block_powers(SignalView signal, int rate, size_t blocks);

} // namespace qv::tool::diagnose
