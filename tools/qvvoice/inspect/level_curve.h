/// @file level_curve.h  The level curve of a gain control.
#pragma once

#include <string>

#include "para/words.h"

namespace qv::tool::inspect {

struct LevelCurve {
  double knee_low, knee_high;              ///< dB of a full-scale square wave
  double slope_low, slope_mid, slope_high; ///< dB per dB
  double knee_gain;                        ///< dB at the upper knee

  /// @param section  "tx.agc" or "rx.agc"
  LevelCurve(const para::Values &values, const std::string &section)
      : knee_low(values(section + ".knee_low_db")), knee_high(values(section + ".knee_high_db")),
        slope_low(values(section + ".slope_low")), slope_mid(values(section + ".slope_mid")),
        slope_high(values(section + ".slope_high")), knee_gain(values(section + ".knee_gain_db")) {}

  /// Wanted level of a frame of this level, dB.
  double operator()(double level) const {
    const double top = knee_high + knee_gain;
    if (level > knee_high)
      return top + slope_high * (level - knee_high);
    if (level > knee_low)
      return top + slope_mid * (level - knee_high);
    return top + slope_mid * (knee_low - knee_high) + slope_low * (level - knee_low);
  }
  double gain(double level) const { return (*this)(level)-level; }
};

} // namespace qv::tool::inspect
