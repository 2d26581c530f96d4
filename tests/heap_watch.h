/// @file heap_watch.h  This program's allocator in front of the C library's: it counts what happens while it is armed,
/// and fails when told to. For one source of a program.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstdlib>

extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void *__libc_memalign(size_t, size_t);
void __libc_free(void *);
}

namespace qv::test {

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
inline thread_local Watch watch;

/// Arms the watch for the length of a scope.
struct Armed {
  explicit Armed(int64_t fail_at = -1) { watch = {.armed = true, .fail_at = fail_at}; }
  ~Armed() { watch.armed = false; }
};

} // namespace qv::test

extern "C" {
void *malloc(size_t size) { return qv::test::watch.taken(qv::test::watch.fails() ? nullptr : __libc_malloc(size)); }
void *calloc(size_t n, size_t size) {
  return qv::test::watch.taken(qv::test::watch.fails() ? nullptr : __libc_calloc(n, size));
}
void *realloc(void *old, size_t size) {
  qv::test::watch.live -= qv::test::watch.armed && old;
  return qv::test::watch.taken(qv::test::watch.fails() ? nullptr : __libc_realloc(old, size));
}
void *aligned_alloc(size_t align, size_t size) {
  return qv::test::watch.taken(qv::test::watch.fails() ? nullptr : __libc_memalign(align, size));
}
void *memalign(size_t align, size_t size) { return aligned_alloc(align, size); }
int posix_memalign(void **block, size_t align, size_t size) {
  *block = aligned_alloc(align, size);
  return *block ? 0 : ENOMEM;
}
void free(void *block) {
  qv::test::watch.calls += qv::test::watch.armed;
  qv::test::watch.live -= qv::test::watch.armed && block;
  __libc_free(block);
}
}
