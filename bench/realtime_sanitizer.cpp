// Frame calls where clang's RealtimeSanitizer stops the program at the first lock, allocation or system call. Built and
// run by scripts/realtime; the library itself may come from any compiler.

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

#include "qvvoice/qvvoice.h"

namespace {

int32_t frame(const int16_t *far, int16_t *played, const int16_t *mic, int16_t *sent) [[clang::nonblocking]] {
  return VOICE_Process(far, played, mic, sent, 0);
}

} // namespace

/// realtime_sanitizer PARA RATE FRAME
int main(int argc, char **argv) {
  if (argc != 4)
    return 2;
  const int32_t rate = std::atoi(argv[2]), length = std::atoi(argv[3]);
  if (const int32_t status = QV_VOICE_Init(argv[1], rate, length)) {
    std::fprintf(stderr, "%s: %s\n", argv[1], QV_VOICE_StatusText(status));
    return 2;
  }
  std::vector<int16_t> far(size_t(length), 0), played(far), mic(far), sent(far);
  uint32_t random = 1;
  const int frames = 20 * rate / length;
  for (int k = 0; k < frames; ++k) {
    for (int i = 0; i < length; ++i) { // bursts of noise, an echo of them a frame later, silence between
      random = random * 1664525 + 1013904223;
      mic[size_t(i)] = int16_t(far[size_t(i)] / 2 + (k % 70 < 20 ? int32_t(random >> 20) - 2048 : 0));
      far[size_t(i)] = k % 50 < 30 ? int16_t(int32_t(random >> 18) - 8192) : int16_t(0);
    }
    if (frame(far.data(), played.data(), mic.data(), sent.data()) != QV_VOICE_OK)
      return 1;
  }
  std::printf("%s at %d Hz, %d samples: %d frames without a lock, an allocation or a system call\n", argv[1], rate, length,
              frames);
  return QV_VOICE_Destory();
}
