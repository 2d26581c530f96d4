// 500 words and audio, through both paths. Whatever they are: success, and nothing undefined.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "config/fields.h"
#include "qvvoice/qvvoice.h"

namespace {

using qv::Layout, qv::layouts;

/// Takes bytes from the front of the input; what is missing is zero.
class Input {
public:
  Input(const uint8_t *data, size_t size) : data_(data), left_(size) {}
  bool empty() const { return left_ == 0; }
  void take(void *out, size_t size) {
    const size_t had = size < left_ ? size : left_;
    std::memset(out, 0, size);
    if (had)
      std::memcpy(out, data_, had);
    data_ += had;
    left_ -= had;
  }

private:
  const uint8_t *data_;
  size_t left_;
};

void expect(int32_t status) {
  if (status != QV_VOICE_OK)
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input input(data, size);
  uint8_t choice;
  qv::config::Image image;
  input.take(&choice, 1);
  input.take(image.data(), sizeof image);
  const Layout layout = layouts[choice % layouts.size()];
  image[qv::config::rate_word] = int16_t(layout.rate);
  image[qv::config::magic_word] = qv::config::magic;
  if (choice / layouts.size() % 2 == 1) // a mark of two words is not found by chance
    std::copy_n(qv::config::echo_mark.begin(), 2, &image[qv::config::echo_mark_word]);
  expect(QV_VOICE_InitImage(image.data(), layout.rate, layout.frame_len));
  constexpr int repeats = 4; // a frame again and again lets averages settle
  while (!input.empty()) {
    int16_t far[QV_MAX_FRAME], mic[QV_MAX_FRAME], played[QV_MAX_FRAME], sent[QV_MAX_FRAME];
    input.take(far, sizeof far);
    input.take(mic, sizeof mic);
    for (int i = 0; i < repeats; ++i)
      expect(VOICE_Process(far, played, mic, sent, 0));
    QvVoiceTrace trace{};
    trace.size = sizeof trace;
    expect(QV_VOICE_GetTrace(&trace));
  }
  expect(QV_VOICE_Destory());
  return 0;
}
