#if defined(__x86_64__)
#include <xmmintrin.h>

#include "images.h"

namespace {

using namespace qv::test;

// The floating-point mode of the caller: rounding, flushing and exception masks are as they were after every call.
TEST(Mode, frame_calls_leave_the_callers_mode) {
  const Call call(all_layouts[3], 3);
  constexpr uint32_t sticky_flags = 0x3f, initial = 0x1f80;
  for (const auto &image : {busy_image(16000), marked(busy_image(16000))})
    for (const uint32_t mode : {0x1f80u, 0x9f80u, 0x1fc0u, 0x9fc0u, 0x3f80u, 0x7f80u}) {
      ASSERT_EQ(QV_VOICE_InitImage(image.data(), 16000, 320), QV_VOICE_OK);
      int16_t out[320];
      for (size_t at = 0; at < call.far.size(); at += 320) {
        _mm_setcsr(mode);
        QV_VOICE_ProcessRx(&call.far[at], out, 0);
        const uint32_t after_rx = _mm_getcsr();
        QV_VOICE_ProcessTx(&call.mic[at], &call.far[at], out, 0);
        const uint32_t after_tx = _mm_getcsr();
        _mm_setcsr(initial);
        EXPECT_EQ(after_rx & ~sticky_flags, mode);
        EXPECT_EQ(after_tx & ~sticky_flags, mode);
      }
    }
  EXPECT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
}

} // namespace
#endif
