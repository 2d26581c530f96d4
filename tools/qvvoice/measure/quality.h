/// @file quality.h  How near a processed talker is to the clean one.
#pragma once

#include <optional>
#include <vector>

#include "signal/signal.h"

namespace qv::tool::measure {

/// Mean over frames of 20 ms of the signal-to-error ratio in dB, each kept within -10 .. 35 dB (Hansen and Pellom
/// 1998). Frames in which the clean signal is silent are passed over.
/// @return nothing without a frame
std::optional<double> segmental_snr_db(SignalView clean, SignalView processed, int rate);

/// Scale-invariant signal-to-distortion ratio (Le Roux, Wisdom, Erdogan and Hershey 2019), dB.
/// @return nothing when either signal is silent or they differ by nothing but a gain
std::optional<double> si_sdr_db(SignalView clean, SignalView processed);

/// Extended short-time objective intelligibility (Jensen and Taal 2016), 0..1 for all practical speech.
/// @return nothing for less than 0.4 s of speech, or when either signal is silent
std::optional<double> estoi(SignalView clean, SignalView processed, int rate);

/// The three together; what has no value for lack of speech has none.
struct Quality {
  std::optional<double> seg_snr, si_sdr, estoi;
};

Quality quality(SignalView clean, SignalView processed, int rate);

} // namespace qv::tool::measure
