// How many calls a machine carries in real time: every stage of a preset's kind on, both directions, all layouts, with
// either echo canceller; on one thread and on two, beside what the bare transforms gain from a second thread in the
// same run; and what a call holds.

#include <kissfft/kiss_fftr.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "config/fields.h"
#include "qvvoice/call.h"

namespace {

using qv::Layout, qv::layouts;
constexpr int32_t frames = 400;
constexpr int32_t calls_per_thread = 4; ///< in turn, so that caches see several calls
constexpr int32_t rounds = 5;           ///< the best counts: the machine may be busy

qv_call *make_call(const Layout &layout, bool state_space, uint32_t seed) {
  const qv_call_config config = {sizeof config, layout.rate, layout.frame_len, seed};
  qv::config::Image image = qv::config::default_image(layout.rate);
  if (state_space)
    set_value(qv::config::table::echo_control[0], image, 0, 1);
  qv_call *call = nullptr;
  if (qv_call_create(&config, image.data(), &call) != QV_VOICE_OK)
    std::abort();
  return call;
}

/// Speech-like bursts, their echo, and a talker of his own.
void run_calls(const Layout &layout, std::vector<qv_call *> calls) {
  std::vector<int16_t> far(size_t(layout.frame_len)), mic(far), out(far), played(far);
  uint32_t random = 1;
  for (int32_t k = 0; k < frames; ++k) {
    for (size_t i = 0; i < far.size(); ++i) {
      random = random * 1664525u + 1013904223u;
      mic[i] = int16_t(far[i] / 2 + (k / 20 % 3 == 0 ? int32_t(random >> 20) - 2048 : 0));
      far[i] = int16_t(k / 25 % 2 ? int32_t(random >> 18) - 8192 : 0);
    }
    for (qv_call *call : calls) {
      qv_call_receive(call, far.data(), played.data());
      qv_call_transmit(call, mic.data(), far.data(), out.data());
    }
  }
}

/// Transforms of a transmit frame's length, there and back, with memory of one's own.
void run_transforms(int32_t length) {
  const std::unique_ptr<kiss_fftr_state, void (*)(void *)> forward(kiss_fftr_alloc(length, 0, nullptr, nullptr),
                                                                   std::free);
  const std::unique_ptr<kiss_fftr_state, void (*)(void *)> backward(kiss_fftr_alloc(length, 1, nullptr, nullptr),
                                                                    std::free);
  std::vector<float> frame(size_t(length), 1e-3f);
  std::vector<kiss_fft_cpx> bins(frame.size());
  for (int32_t k = 0; k < 20 * frames; ++k) {
    kiss_fftr(forward.get(), frame.data(), bins.data());
    kiss_fftri(backward.get(), bins.data(), frame.data());
    for (float &x : frame)
      x /= float(length);
  }
}

/// Seconds of the quickest of some rounds, with the same work on every thread.
template <class Work> double seconds(int32_t threads, Work work) {
  using Clock = std::chrono::steady_clock;
  double best = 1e9;
  for (int32_t round = 0; round < rounds; ++round) {
    const auto start = Clock::now();
    std::vector<std::thread> running;
    for (int32_t t = 0; t < threads; ++t)
      running.emplace_back([&work, t] { work(t); });
    for (std::thread &thread : running)
      thread.join();
    best = std::min(best, std::chrono::duration<double>(Clock::now() - start).count());
  }
  return best;
}

} // namespace

int main() {
  std::printf("layout                 calls a core   two threads carry   bare transforms   bytes a call\n");
  for (size_t row = 0; row < 2 * layouts.size(); ++row) {
    const Layout &layout = layouts[row / 2];
    const bool state_space = row % 2 == 1;
    const size_t before = mallinfo2().uordblks;
    std::vector<std::vector<qv_call *>> calls(2);
    for (int32_t t = 0; t < 2; ++t)
      for (int32_t c = 0; c < calls_per_thread; ++c)
        calls[size_t(t)].push_back(make_call(layout, state_space, uint32_t(t * calls_per_thread + c)));
    const size_t bytes = (mallinfo2().uordblks - before) / (2 * calls_per_thread);

    const auto work = [&](int32_t t) { run_calls(layout, calls[size_t(t)]); };
    const auto bare = [&](int32_t) { run_transforms(2 * layout.frame_len); };
    const double one = seconds(1, work), two = seconds(2, work);
    const double bare_one = seconds(1, bare), bare_two = seconds(2, bare);
    const double audio = double(frames) * layout.frame_len / layout.rate * calls_per_thread;
    std::printf("%5d %4d %-11s %14.0f %16.2f x %15.2f x %14zu\n", layout.rate, layout.frame_len,
                state_space ? "state-space" : "", audio / one, 2 * one / two, 2 * bare_one / bare_two, bytes);
    for (const std::vector<qv_call *> &of_thread : calls)
      for (qv_call *call : of_thread)
        qv_call_destroy(call);
  }
}
