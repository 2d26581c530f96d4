// The floating-point mode of the caller: rounding, flushing and exception masks are as they were after every call.

#include "images.h"

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

namespace {

using namespace qv::test;

#if defined(__x86_64__)
TEST(Mode, frame_calls_leave_the_callers_mode) {
  const Layout layout = {16000, 320, 32};
  const Call call(layout, 3);
  constexpr uint32_t sticky_flags = 0x3f, initial = 0x1f80;
  for (const uint32_t mode :
       {initial, initial | 0x8000, initial | 0x40, initial | 0x8040, initial | 0x2000, initial | 0x6000}) {
    ASSERT_EQ(QV_VOICE_InitImage(busy_image(16000).data(), 16000, 320), QV_VOICE_OK);
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
#endif

} // namespace
