/// @file images.h  Parameter images and a call to run through the library.
#pragma once

#include "config/fields.h"
#include "qvvoice/qvvoice.h"
#include "support.h"

namespace qv::test {

/// Every stage on, both suppressors and both equalisers at full length (a delay with faint echoes around it).
inline config::Image busy_image(int32_t rate) {
  config::Image image = config::default_image(rate);
  image[13] = 1;
  for (const size_t eq : {160, 300}) {
    image[eq] = 1;
    image[eq + 1] = EQ_MAX_HALF_TAPS;
    for (size_t i = 0; i < EQ_MAX_HALF_TAPS - 1; ++i)
      image[eq + 2 + i] = int16_t(i % 5 * 20);
    image[eq + 1 + EQ_MAX_HALF_TAPS] = 24000;
  }
  return image;
}

/// With the state-space canceller in place of the other one.
inline config::Image marked(config::Image image) {
  set_value(config::table::echo_control[0], image, 0, 1);
  return image;
}

/// Both directions of a call: bursts of noise at the far end, their echo and other bursts at the microphone.
struct Call {
  Samples far, mic;
  Call(const Layout &layout, int32_t frames) {
    const auto count = size_t(frames * layout.frame_len), burst = size_t(layout.rate) / 4;
    far = noise_samples(11, count, 9000);
    mic = noise_samples(12, count, 3000);
    for (size_t i = 0; i < count; ++i) {
      far[i] = int16_t(i / burst % 2 ? far[i] : 0);
      mic[i] = int16_t((i / burst % 3 ? mic[i] / 100 : mic[i]) + (i < 300 ? 0 : far[i - 300] / 4));
    }
  }
};

struct Outputs {
  Samples played, sent;
  bool operator==(const Outputs &) const = default;
};

inline QvVoiceTrace empty_trace() {
  QvVoiceTrace trace{};
  trace.size = sizeof trace;
  return trace;
}

/// What the library says of the process's own call.
inline QvVoiceTrace trace() {
  QvVoiceTrace trace = empty_trace();
  EXPECT_EQ(QV_VOICE_GetTrace(&trace), QV_VOICE_OK);
  return trace;
}

/// Runs a call through the library as it has been initialised.
inline Outputs run(const Layout &layout, const Call &call) {
  Outputs out{Samples(call.far.size()), Samples(call.mic.size())};
  std::srand(1); // comfort noise
  for (size_t at = 0; at < call.mic.size(); at += size_t(layout.frame_len)) {
    EXPECT_EQ(QV_VOICE_ProcessRx(&call.far[at], &out.played[at], 0), QV_VOICE_OK);
    EXPECT_EQ(QV_VOICE_ProcessTx(&call.mic[at], &out.played[at], &out.sent[at], 0), QV_VOICE_OK);
  }
  return out;
}

} // namespace qv::test
