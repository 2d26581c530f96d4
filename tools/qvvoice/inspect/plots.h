/// @file plots.h  Pictures of what a parameter file does, as SVG.
#pragma once

#include <string>

#include "para/words.h"

namespace qv::tool::inspect {

/// All for an image of a served rate. @param source  where it comes from, for the titles
std::string plot_gain_control(const para::Image &image, const std::string &source); ///< level curves, knees marked
std::string plot_equaliser(const para::Image &image, const std::string &source);    ///< magnitude responses
std::string plot_double_talk(const para::Image &image, const std::string &source);  ///< detector's knees per band

} // namespace qv::tool::inspect
