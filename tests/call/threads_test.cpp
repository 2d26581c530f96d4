// Many calls on many threads, two threads in each call: every output is that of the call run alone.
// The thread sanitizer watches (`ctest --preset tsan`).

#include <atomic>
#include <thread>

#include "calls.h"

namespace {

using namespace qv::test;

/// Of a call's number: every other pair of layouts with the state-space canceller.
qv::config::Image image_of(size_t call) {
  const auto image = busy_image(all_layouts[call % 4].rate);
  return call / 4 % 2 ? marked(image) : image;
}

constexpr size_t call_count = 64, thread_count = 8, frames = 12;

TEST(Threads, calls_do_not_touch_each_other_nor_do_their_directions) {
  std::vector<Call> signals;
  std::vector<Outputs> expected, out;
  std::vector<CallPtr> calls;
  for (size_t c = 0; c < call_count; ++c) {
    const Layout &layout = all_layouts[c % 4];
    signals.emplace_back(layout, int32_t(frames));
    expected.push_back(run(make_call(layout, image_of(c), uint32_t(c)).get(), layout, signals[c], true));
    out.push_back({Samples(signals[c].far.size()), Samples(signals[c].far.size())});
    calls.push_back(make_call(layout, image_of(c), uint32_t(c)));
  }

  // Threads come in pairs: the even one receives for a quarter of the calls, the odd one transmits for them.
  std::atomic<bool> running{true};
  std::atomic<uint64_t> failures{0}, traces{0};
  std::vector<std::thread> threads;
  for (size_t t = 0; t < thread_count; ++t)
    threads.emplace_back([&, t] {
      for (size_t k = 0; k < frames; ++k) {
        for (size_t c = t / 2; c < call_count; c += thread_count / 2) {
          const auto n = size_t(all_layouts[c % 4].frame_len), at = k * n;
          const bool receives = t % 2 == 0;
          const int32_t status =
              receives ? qv_call_receive(calls[c].get(), &signals[c].far[at], &out[c].played[at])
                       : qv_call_transmit(calls[c].get(), &signals[c].mic[at], &signals[c].far[at], &out[c].sent[at]);
          failures += status != QV_VOICE_OK;
        }
        const Layout &layout = all_layouts[(t + k) % 4];
        qv_call *passing = nullptr;
        const qv_call_config config = config_of(layout);
        failures += qv_call_create(&config, image_of(t + 5 * k).data(), &passing) != QV_VOICE_OK;
        qv_call_destroy(passing);
      }
    });
  threads.emplace_back([&] {
    while (running)
      for (const CallPtr &call : calls) {
        int32_t tx, rx;
        failures += trace_of(call).tx_frame > frames;
        failures += qv_call_latency(call.get(), &tx, &rx) != QV_VOICE_OK;
        ++traces;
      }
  });
  for (size_t t = 0; t < thread_count; ++t)
    threads[t].join();
  running = false;
  threads.back().join();

  EXPECT_EQ(failures, 0u);
  EXPECT_GT(traces, call_count);
  for (size_t c = 0; c < call_count; ++c)
    EXPECT_EQ(out[c], expected[c]) << "call " << c;
}

// The process's own call, and parameters that come from a third thread.
TEST(Threads, process_entry_points_and_replacements) {
  const Layout &layout = all_layouts[3];
  const Call signals(layout, 40);
  auto image = busy_image(layout.rate);
  image[440] = 0; // rand() is not ours to keep in order
  ASSERT_EQ(QV_VOICE_InitImage(image.data(), layout.rate, layout.frame_len), QV_VOICE_OK);
  const CallPtr call = make_call(layout, image);
  const Outputs alone = run(call.get(), layout, signals, true);
  Outputs out = alone, retuned = alone;
  std::atomic<int> at_work{2};
  std::thread receiver([&] {
    for (size_t at = 0; at < signals.far.size(); at += 320) {
      QV_VOICE_ProcessRx(&signals.far[at], &out.played[at], 0);
      qv_call_receive(call.get(), &signals.far[at], &retuned.played[at]);
    }
    --at_work;
  });
  std::thread transmitter([&] {
    for (size_t at = 0; at < signals.far.size(); at += 320) {
      QV_VOICE_ProcessTx(&signals.mic[at], &signals.far[at], &out.sent[at], 0);
      qv_call_transmit(call.get(), &signals.mic[at], &signals.far[at], &retuned.sent[at]);
    }
    --at_work;
  });
  for (int16_t turn = 0; at_work; ++turn) {
    image[160] = turn % 2;
    image[123] = int16_t(-1500 - turn % 100);
    replace(call, image);
    trace();
  }
  receiver.join();
  transmitter.join();
  EXPECT_EQ(out, alone);
  EXPECT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
}

} // namespace
