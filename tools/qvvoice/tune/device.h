/// @file device.h  Calls with a known truth from two recordings of a device.
#pragma once

#include <string>

#include "call/setup.h"

namespace qv::tool::tune {

struct DeviceRecordings {
  std::string mic, ref; ///< the device plays far-end speech while nobody talks; the same file: channels 1 and 2 of it
  std::string near;     ///< somebody talks while it plays nothing
};

/// Mixes the recordings into calls of 24 s, in which the far end talks alone, then the near end, then both, then the
/// far end again: the near end 6 dB louder than recorded, as recorded and 6 dB quieter, at different places of both.
/// The first half of each recording makes FOLDER/tune, the second FOLDER/check.
/// @param setup  of the library, for the checks that come first; the calls have its rate
/// @throws InputError when the recordings cannot serve: too short or silent, no echo, a delay out of reach, somebody
///         talking in the echo recording, and whatever else qvvoice diagnose finds wrong with a recording
void make_calls(const DeviceRecordings &device, const Setup &setup, const std::string &folder);

} // namespace qv::tool::tune
