// The heap as the library sees it: this program's allocator stands in front of the C library's, counts what happens
// while it is armed, and fails when told to.

#include <malloc.h>

#include <functional>

#include "call/calls.h"
#include "heap_watch.h"
#include "qvvoice/dsp/memory.h"

namespace {

using namespace qv::test;

/// No compiler can leave out a block whose address it has to show.
void *shown(void *block) {
  [[maybe_unused]] static void *volatile last;
  last = block;
  return block;
}

TEST(Heap, planted_allocations_are_caught) {
  void *block = nullptr;
  const Armed scope;
  free(shown(malloc(10)));
  free(shown(calloc(10, 1)));
  free(shown(realloc(nullptr, 10)));
  free(shown(aligned_alloc(64, 64)));
  free(shown(posix_memalign(&block, 64, 64) == 0 ? block : nullptr));
  ::operator delete(shown(::operator new(10)));
  VOICE_Free(VOICE_Alloc(10)); // from inside the library
  watch.armed = false;
  EXPECT_EQ(watch.calls, 2 * 7);
  EXPECT_EQ(watch.live, 0);
  EXPECT_EQ(VOICE_Alloc(-1), nullptr);
}

// Both paths, every stage, speech and silence, all layouts: the process's own call with trace and latency asked for in
// every frame, and a call behind a stream of odd blocks with parameters replaced all the time.
TEST(Heap, no_frame_call_touches_it) {
  for (size_t turn = 0; turn < 2 * std::size(all_layouts); ++turn) {
    const Layout &layout = all_layouts[turn / 2];
    const Call signals(layout, 200);
    auto image = turn % 2 ? marked(busy_image(layout.rate)) : busy_image(layout.rate);
    ASSERT_EQ(QV_VOICE_InitImage(image.data(), layout.rate, layout.frame_len), QV_VOICE_OK);
    const CallPtr call = make_call(layout, image);
    qv_stream *made = nullptr;
    ASSERT_EQ(qv_stream_create(call.get(), 0, &made), QV_VOICE_OK);
    const StreamPtr stream(made);
    constexpr size_t block = 111;
    float in[block], out[block];
    int16_t played[QV_MAX_FRAME], sent[QV_MAX_FRAME];
    int32_t failed = 0, talk_states = 0, latency = 0;
    size_t replaced = 0;
    const Armed scope;
    for (size_t at = 0; at < signals.far.size(); at += size_t(layout.frame_len)) {
      QvVoiceTrace trace = empty_trace();
      failed |= VOICE_Process(&signals.far[at], played, &signals.mic[at], sent, 0);
      failed |= QV_VOICE_GetTrace(&trace) | QV_VOICE_GetLatency(&latency, &latency);
      talk_states |= 1 << trace.talk_state;
    }
    for (size_t at = 0; at + block <= signals.far.size(); at += block) {
      std::copy_n(&signals.mic[at], block, in);
      failed |= qv_stream_transmit_float(stream.get(), in, in, out, block);
      failed |= qv_stream_receive_float(stream.get(), in, out, block);
      if (at / block % 20 != 0)
        continue;
      const size_t switches[] = {10, 110, 160, 301};
      image[switches[replaced % 4]] = int16_t(replaced / 4 % 2);
      failed |= qv_call_replace_parameters(call.get(), image.data(), nullptr);
      ++replaced;
    }
    watch.armed = false;
    EXPECT_EQ(watch.calls, 0) << layout;
    EXPECT_EQ(failed, 0) << layout;
    EXPECT_GT(talk_states, 2) << "the call has silence and speech";
    EXPECT_GT(replaced, 4u) << layout;
  }
  EXPECT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
}

// Wherever memory runs out, a creation or an initialisation says so and holds nothing, the next one succeeds, and a
// call beside it goes on as if alone.
TEST(Heap, creation_and_initialisation_survive_the_failure_of_any_allocation) {
  const Layout &layout = all_layouts[3];
  for (const auto &image : {busy_image(layout.rate), marked(busy_image(layout.rate))}) {
    const qv_call_config config = config_of(layout);
    const Call signals(layout, 4000);
    const CallPtr beside = make_call(layout, image), alone = make_call(layout, image);
    qv_call *call = nullptr;
    size_t at = 0;
    const auto create = [&] { return qv_call_create(&config, image.data(), &call); };
    const auto initialise = [&] { return QV_VOICE_InitImage(image.data(), layout.rate, layout.frame_len); };
    for (const auto &[attempt, kept] : {std::pair{std::function<int32_t()>(create), QV_VOICE_OK},
                                        {std::function<int32_t()>(initialise), QV_VOICE_OUT_OF_MEMORY}}) {
      int64_t failures = 0;
      for (int32_t status = QV_VOICE_OUT_OF_MEMORY; status != QV_VOICE_OK; ++failures, at += 320) {
        ASSERT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
        const Armed scope(failures);
        status = attempt();
        watch.armed = false;
        int16_t out[2][320];
        ASSERT_EQ(qv_call_transmit(beside.get(), &signals.mic[at], &signals.far[at], out[0]), QV_VOICE_OK);
        ASSERT_EQ(qv_call_transmit(alone.get(), &signals.mic[at], &signals.far[at], out[1]), QV_VOICE_OK);
        ASSERT_TRUE(std::equal(out[0], out[0] + 320, out[1]));
        if (status == QV_VOICE_OK)
          continue;
        ASSERT_EQ(status, QV_VOICE_OUT_OF_MEMORY) << "request " << failures;
        ASSERT_EQ(watch.live, 0) << "request " << failures;
        ASSERT_EQ(QV_VOICE_Destory(), kept) << "request " << failures;
        ASSERT_EQ(initialise(), QV_VOICE_OK) << "request " << failures;
      }
      EXPECT_GT(failures, 100);
    }
    qv_call_destroy(call);
  }
  EXPECT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
}

// A gateway's worth of calls, taken and returned. The size of one depends on its layout, not on its parameters.
TEST(Heap, a_thousand_calls_leave_nothing) {
  const Layout &layout = all_layouts[3];
  const auto plain = qv::config::default_image(layout.rate);
  const qv_call_config config = config_of(layout);
  for (const auto &[image, most] : {std::pair{plain, 600'000u}, {marked(plain), 750'000u}}) {
    std::vector<qv_call *> calls(1000);
    const Armed scope;
    int32_t failed = 0;
    for (qv_call *&call : calls)
      failed |= qv_call_create(&config, image.data(), &call);
    const size_t bytes = mallinfo2().uordblks / calls.size();
    for (qv_call *call : calls)
      qv_call_destroy(call);
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(watch.live, 0);
    EXPECT_GT(bytes, 100'000u);
    EXPECT_LT(bytes, most);
  }
}

// An initialisation that is refused, for whatever reason, holds nothing of the one before.
TEST(Heap, refused_initialisation_keeps_nothing) {
  auto image = busy_image(16000), unmarked = image, other_rate = image;
  unmarked[9] = 0;
  other_rate[0] = 8000;
  const auto refused = {
      std::function([&] { return QV_VOICE_InitImage(nullptr, 16000, 320); }),
      std::function([&] { return QV_VOICE_InitImage(other_rate.data(), 16000, 320); }),
      std::function([&] { return QV_VOICE_InitImage(unmarked.data(), 16000, 256); }),
      std::function([&] { return QV_VOICE_InitImage(unmarked.data(), 16000, 100); }),
      std::function([&] { return QV_VOICE_Init("/nowhere/at.all", 16000, 320); }),
  };
  for (const auto &initialise : refused) {
    const Armed scope;
    ASSERT_EQ(QV_VOICE_InitImage(image.data(), 16000, 320), QV_VOICE_OK);
    ASSERT_EQ(QV_VOICE_InitImage(image.data(), 16000, 320), QV_VOICE_OK); // on top of a running one
    EXPECT_GT(watch.live, 100);
    EXPECT_NE(initialise(), QV_VOICE_OK);
    EXPECT_EQ(watch.live, 0);
  }
  ASSERT_EQ(QV_VOICE_InitImage(image.data(), 16000, 320), QV_VOICE_OK);
  EXPECT_EQ(QV_VOICE_InitImage(unmarked.data(), 16000, 320), QV_VOICE_OK); // the layout held
  EXPECT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
}

} // namespace
