/// @file resample.h  The same signal at another rate.
#pragma once

#include "signal/signal.h"

namespace qv::tool {

/// By libsoxr, high quality, without delay. @param from,to  Hz
Signal resample(SignalView signal, int from, int to);

} // namespace qv::tool
