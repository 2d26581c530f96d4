/// @file spectrogram.h  A recording as a picture: time to the right, frequency upwards, one grey step per dB.
#pragma once

#include "report/encode.h"
#include "signal/signal.h"

namespace qv::tool::report {

/// What the pixels of a picture mean.
struct SpectrogramScale {
  double column_seconds; ///< column c is centred at c * column_seconds
  double row_hz;         ///< the row r from the bottom is centred at r * row_hz
  int columns, rows;
};

/// Columns of 10 ms; wider ones for calls of more than 100 s, so that browsers can draw the picture.
/// @param samples  length of the call
SpectrogramScale spectrogram_scale(size_t samples, int rate);

/// Grey of a level: 0 for -128 dB or less, then one step per dB. 0 dB is a full-scale square wave.
inline constexpr int grey_of_full_scale = 128;

/// Power spectra of 32 ms under a Hann window, at least one every 10 ms; a column shows the mean of its own. A sine
/// shows its own level (full scale: -3 dB) at its peak.
GreyPicture spectrogram(SampleView samples, int rate, const SpectrogramScale &scale);

} // namespace qv::tool::report
