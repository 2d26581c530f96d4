// Loads the library given by its path, runs calls through it and prints a hash of all that comes out: samples and
// traces of both directions, every stage on, each frame layout. Two builds give the same text or differ in some bit.

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "config/fields.h"
#include "qvvoice/qvvoice.h"

namespace {

constexpr int32_t seconds = 5;

/// FNV-1a, 64 bits.
struct Hash {
  uint64_t value = 0xcbf29ce484222325;
  void add(const void *data, size_t size) {
    for (size_t i = 0; i < size; ++i)
      value = (value ^ static_cast<const unsigned char *>(data)[i]) * 0x100000001b3;
  }
};

/// The entry points of one build.
struct Library {
  void *handle;
  explicit Library(const char *path) : handle(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
    if (!handle)
      fail(dlerror());
  }
  [[noreturn]] static void fail(const char *why) {
    std::fprintf(stderr, "%s\n", why);
    std::exit(2);
  }
  template <class Function> Function *entry(const char *name, Function *) const {
    void *symbol = dlsym(handle, name);
    if (!symbol)
      fail(dlerror());
    return reinterpret_cast<Function *>(symbol);
  }
};
#define ENTRY(library, name) (library).entry(#name, decltype (&name)(nullptr))

/// Integer arithmetic only: noise through a resonance that moves like vowels, in bursts from a whisper to clipping.
class Talker {
public:
  explicit Talker(uint32_t seed) : noise_(seed) {}

  int16_t next() {
    noise_ = noise_ * 1664525u + 1013904223u;
    if (++time_ % 4000 == 0) {
      level_ = noise_ >> 28;                       // 0 is silence
      pitch_ = 20000 + int32_t(noise_ >> 24) * 40; // 2 cos(angle) of the pole, Q14
    }
    const int64_t drive = (int32_t(noise_) >> 20) * (int64_t{1} << level_) / 64;
    const int64_t y = drive + ((y1_ * pitch_ - y2_ * 15500) >> 14);
    y2_ = y1_;
    y1_ = y > 1'000'000 ? 1'000'000 : y < -1'000'000 ? -1'000'000 : y;
    return level_ == 0 ? int16_t(0) : clip(y1_);
  }

  static int16_t clip(int64_t x) { return int16_t(x > 32767 ? 32767 : x < -32768 ? -32768 : x); }

private:
  uint32_t noise_, time_ = 0, level_ = 9;
  int32_t pitch_ = 25000;
  int64_t y1_ = 0, y2_ = 0;
};

qv::config::Image image_for(int32_t rate, bool ratio_suppressor) {
  qv::config::Image image = qv::config::default_image(rate);
  image[13] = ratio_suppressor; // otherwise by coherence
  for (const size_t eq : {160, 300}) {
    image[eq] = 1;
    image[eq + 1] = 101;
    for (size_t i = 0; i < 101; ++i)
      image[eq + 2 + i] = int16_t(i * i % 37 * 25 - 300 + (i == 100 ? 20000 : 0));
  }
  return image;
}

uint64_t hash_of_call(const Library &library, int32_t rate, int32_t frame_len, bool ratio_suppressor) {
  if (ENTRY(library, QV_VOICE_InitImage)(image_for(rate, ratio_suppressor).data(), rate, frame_len) != QV_VOICE_OK)
    Library::fail("initialisation failed");
  const auto process_rx = ENTRY(library, QV_VOICE_ProcessRx);
  const auto process_tx = ENTRY(library, QV_VOICE_ProcessTx);
  const auto get_trace = ENTRY(library, QV_VOICE_GetTrace);
  Hash hash;
  Talker far_talker(1), near_talker(2);
  std::srand(1); // comfort noise
  int16_t echo[640] = {}, far[320], played[320], mic[320], sent[320];
  for (int32_t frame = 0; frame < seconds * rate / frame_len; ++frame) {
    const bool near_speaks = frame / 60 % 3 == 2;
    for (int32_t i = 0; i < frame_len; ++i) {
      far[i] = far_talker.next();
      const int16_t near = near_talker.next();
      mic[i] = Talker::clip(echo[i] / 3 + (near_speaks ? near : near / 256));
    }
    int32_t failed = process_rx(far, played, 0) | process_tx(mic, played, sent, 0);
    for (int32_t i = 0; i < frame_len; ++i)
      echo[i] = int16_t((played[i] + (i < 40 ? 0 : played[i - 40])) / 2); // heard one frame later
    QvVoiceTrace trace{};
    trace.size = sizeof trace;
    failed |= get_trace(&trace);
    if (failed)
      Library::fail("a frame failed");
    hash.add(played, size_t(frame_len) * 2);
    hash.add(sent, size_t(frame_len) * 2);
    hash.add(&trace, sizeof trace);
  }
  ENTRY(library, QV_VOICE_Destory)();
  return hash.value;
}

} // namespace

int main(int argc, char **argv) {
  if (argc != 2)
    Library::fail("usage: same_bits_hash LIBRARY");
  const Library library(argv[1]);
  for (const auto &[rate, frame_len] : {std::pair{8000, 128}, {8000, 160}, {16000, 256}, {16000, 320}})
    for (const bool ratio_suppressor : {false, true})
      std::printf("%d %d %d %016llx\n", rate, frame_len, ratio_suppressor,
                  static_cast<unsigned long long>(hash_of_call(library, rate, frame_len, ratio_suppressor)));
}
