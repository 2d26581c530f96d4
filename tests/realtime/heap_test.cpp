// The heap as the library sees it: this program's allocator stands in front of the C library's, counts what happens
// while it is armed, and fails when told to.

#include <cerrno>
#include <cstdlib>

#include "images.h"
#include "qvvoice/dsp/memory.h"

extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void *__libc_memalign(size_t, size_t);
void __libc_free(void *);
}

namespace {

struct Watch {
  bool armed = false;
  int64_t calls = 0;    ///< of any heap function
  int64_t live = 0;     ///< blocks taken less blocks returned
  int64_t requests = 0; ///< blocks asked for
  int64_t fail_at = -1; ///< the request that fails, counted from 0

  bool fails() { return armed && requests++ == fail_at; }
  void *taken(void *block) {
    calls += armed;
    live += armed && block;
    return block;
  }
};
thread_local Watch watch;

/// Arms the watch for the length of a scope.
struct Armed {
  explicit Armed(int64_t fail_at = -1) { watch = {.armed = true, .fail_at = fail_at}; }
  ~Armed() { watch.armed = false; }
};

} // namespace

extern "C" {
void *malloc(size_t size) { return watch.taken(watch.fails() ? nullptr : __libc_malloc(size)); }
void *calloc(size_t n, size_t size) { return watch.taken(watch.fails() ? nullptr : __libc_calloc(n, size)); }
void *realloc(void *old, size_t size) {
  watch.live -= watch.armed && old;
  return watch.taken(watch.fails() ? nullptr : __libc_realloc(old, size));
}
void *aligned_alloc(size_t align, size_t size) {
  return watch.taken(watch.fails() ? nullptr : __libc_memalign(align, size));
}
void *memalign(size_t align, size_t size) { return aligned_alloc(align, size); }
int posix_memalign(void **block, size_t align, size_t size) {
  *block = aligned_alloc(align, size);
  return *block ? 0 : ENOMEM;
}
void free(void *block) {
  watch.calls += watch.armed;
  watch.live -= watch.armed && block;
  __libc_free(block);
}
}

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

// Both paths, every stage, speech and silence, all layouts, with trace and latency asked for in every frame.
TEST(Heap, no_frame_call_touches_it) {
  for (const Layout &layout : all_layouts) {
    const Call call(layout, 200);
    Outputs out{Samples(call.far.size()), Samples(call.far.size())};
    ASSERT_EQ(QV_VOICE_InitImage(busy_image(layout.rate).data(), layout.rate, layout.frame_len), QV_VOICE_OK);
    int32_t failed = 0, talk_states = 0;
    const Armed scope;
    for (size_t at = 0; at < call.far.size(); at += size_t(layout.frame_len)) {
      QvVoiceTrace trace{};
      trace.size = sizeof trace;
      failed |= VOICE_Process(&call.far[at], &out.played[at], &call.mic[at], &out.sent[at], 0);
      failed |= QV_VOICE_GetTrace(&trace);
      talk_states |= 1 << trace.talk_state;
    }
    watch.armed = false;
    EXPECT_EQ(watch.calls, 0) << layout;
    EXPECT_EQ(failed, 0) << layout;
    EXPECT_GT(talk_states, 2) << "the call has silence and speech";
  }
  EXPECT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
}

// Wherever memory runs out, the initialisation says so, gives back what it took, and the next one succeeds.
TEST(Heap, initialisation_survives_the_failure_of_any_allocation) {
  for (const Layout &layout : {all_layouts[0], all_layouts[3]}) {
    const auto image = busy_image(layout.rate);
    const auto initialise = [&] { return QV_VOICE_InitImage(image.data(), layout.rate, layout.frame_len); };
    int16_t frame[320] = {};
    int64_t failures = 0;
    int32_t status = QV_VOICE_OUT_OF_MEMORY;
    for (; status != QV_VOICE_OK; failures += status != QV_VOICE_OK) {
      ASSERT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
      const Armed scope(failures);
      status = initialise();
      if (status == QV_VOICE_OK)
        continue;
      ASSERT_EQ(status, QV_VOICE_OUT_OF_MEMORY) << "request " << failures;
      ASSERT_EQ(watch.live, 0) << "request " << failures;
      ASSERT_EQ(QV_VOICE_ProcessTx(frame, frame, frame, 0), QV_VOICE_OUT_OF_MEMORY);
      ASSERT_EQ(QV_VOICE_Destory(), QV_VOICE_OUT_OF_MEMORY);
      ASSERT_EQ(initialise(), QV_VOICE_OK);
    }
    EXPECT_GT(failures, 100) << layout;

    const Armed scope;
    EXPECT_EQ(initialise(), QV_VOICE_OK); // on top of a running one
    const int64_t returned_less_taken = -watch.live;
    EXPECT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
    EXPECT_EQ(returned_less_taken, 0);
    EXPECT_GT(-watch.live, 100);
  }
}

} // namespace
