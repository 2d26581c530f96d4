// Frames of a call for scripts/bench, which counts their instructions: frames RATE FRAME_LEN SIGNAL PATH
//   SIGNAL  speech (far end alone), silence, double-talk, jumps (of the echo's delay, by 420 ms and back);  PATH  tx,
//   rx, state-space (tx with that canceller)

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "config/fields.h"
#include "qvvoice/qvvoice.h"

namespace {

constexpr int warm_up = 150, measured = 100; ///< frames; the warm-up is long enough for delay and filter to settle

/// Noise in syllables, three a second. @param place  sample of the call
int16_t sound(uint32_t &random, int place, int rate) {
  random = random * 1664525 + 1013904223;
  const double syllable = std::max(0.0, std::sin(6.28 * 3 * place / rate) + 0.5);
  return int16_t(syllable * (int32_t(random >> 18) - 8192) / 4);
}

} // namespace

int main(int argc, char **argv) {
  if (argc != 5)
    return 2;
  const int rate = std::atoi(argv[1]), length = std::atoi(argv[2]);
  const std::string signal = argv[3], path = argv[4];
  qv::config::Image image = qv::config::default_image(rate);
  if (path == "state-space")
    set_value(qv::config::table::echo_control[0], image, 0, 1);
  if (const int32_t status = QV_VOICE_InitImage(image.data(), rate, length)) {
    std::fprintf(stderr, "frames: %s\n", QV_VOICE_StatusText(status));
    return 2;
  }
  constexpr size_t late = 1, later = 22, jump_every = 25; // frames
  std::vector<std::vector<int16_t>> far(warm_up + measured + later, std::vector<int16_t>(size_t(length), 0));
  std::vector<int16_t> mic(size_t(length), 0), out(mic);
  uint32_t far_random = 1, near_random = 2;
  for (int k = 0; k < warm_up + measured; ++k) {
    const bool silent = signal == "silence" && k >= warm_up, jumped = signal == "jumps" && k / jump_every % 2;
    auto &now = far[size_t(k) + later];
    const auto &heard = far[size_t(k) + later - (jumped ? later : late)];
    for (int i = 0; i < length; ++i) {
      now[size_t(i)] = silent ? int16_t(0) : sound(far_random, k * length + i, rate);
      const int near = signal == "double-talk" ? sound(near_random, k * length + i + rate / 7, rate) : 0;
      mic[size_t(i)] = int16_t(heard[size_t(i)] / 2 + near);
    }
    if (path == "rx")
      QV_VOICE_ProcessRx(mic.data(), out.data(), 0);
    else
      QV_VOICE_ProcessTx(mic.data(), now.data(), out.data(), 0);
  }
  return QV_VOICE_Destory();
}
