/// @file call.h  A call made by integer arithmetic alone: the same samples on every machine.
#pragma once

#include <cstdint>
#include <vector>

namespace vectors {

/// What the library is given, 16-bit samples, all of one length.
struct Call {
  std::vector<int16_t> far; ///< what the loudspeaker played
  std::vector<int16_t> mic; ///< its echo, the near-end talker and room noise
  std::vector<int16_t> rx;  ///< from the far end, with line noise
};

/// Six seconds with far-end speech, double talk, near-end speech, digital silence, a jump of the echo
/// delay, a clipped microphone and noise alone, in this order.
/// @param rate  8000 or 16000, in Hz
Call make_call(int32_t rate);

/// Echo delay of the first half of the call. @return samples
int32_t first_echo_delay(int32_t rate);

} // namespace vectors
