/// @file pipeline.h  What the entry points share.
#pragma once

#include <cstdint>

namespace qv::api {

/// Frames since initialisation, and whether there has been one.
struct Session {
  bool ready = false;
  uint32_t tx_frames = 0;
  uint32_t rx_frames = 0;
};

extern Session session;

} // namespace qv::api
