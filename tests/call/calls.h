/// @file calls.h  Calls under test, freed by themselves.
#pragma once

#include <memory>

#include "images.h"
#include "qvvoice/call.h"
#include "qvvoice/stream.h"

namespace qv::test {

struct Destroy {
  void operator()(qv_call *call) const { qv_call_destroy(call); }
  void operator()(qv_stream *stream) const { qv_stream_destroy(stream); }
};
using CallPtr = std::unique_ptr<qv_call, Destroy>;
using StreamPtr = std::unique_ptr<qv_stream, Destroy>;

inline qv_call_config config_of(const Layout &layout, uint32_t seed = 1) {
  return {sizeof(qv_call_config), layout.rate, layout.frame_len, seed};
}

inline CallPtr make_call(const Layout &layout, const config::Image &image, uint32_t seed = 1) {
  const qv_call_config config = config_of(layout, seed);
  qv_call *call = nullptr;
  EXPECT_EQ(qv_call_create(&config, image.data(), &call), QV_VOICE_OK);
  return CallPtr(call);
}

inline QvVoiceTrace trace_of(const CallPtr &call) {
  QvVoiceTrace trace = empty_trace();
  EXPECT_EQ(qv_call_trace(call.get(), &trace), QV_VOICE_OK);
  return trace;
}

/// Parameters replaced; what that costs.
inline uint32_t replace(const CallPtr &call, const config::Image &image) {
  uint32_t effects = 99;
  EXPECT_EQ(qv_call_replace_parameters(call.get(), image.data(), &effects), QV_VOICE_OK);
  return effects;
}

/// Both directions of a call frame by frame; the reference is the receive output, or the far end itself.
inline Outputs run(qv_call *call, const Layout &layout, const Call &signals, bool far_is_reference = false) {
  Outputs out{Samples(signals.far.size()), Samples(signals.mic.size())};
  const Samples &reference = far_is_reference ? signals.far : out.played;
  for (size_t at = 0; at < signals.mic.size(); at += size_t(layout.frame_len)) {
    EXPECT_EQ(qv_call_receive(call, &signals.far[at], &out.played[at]), QV_VOICE_OK);
    EXPECT_EQ(qv_call_transmit(call, &signals.mic[at], &reference[at], &out.sent[at]), QV_VOICE_OK);
  }
  return out;
}

} // namespace qv::test
