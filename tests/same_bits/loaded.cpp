// A program that is simply linked gets the build for its processor: the loader looks into glibc-hwcaps by itself.

#include <dlfcn.h>

#include <cstdio>
#include <string_view>

#include "qvvoice/qvvoice.h"

int main() {
  Dl_info loaded{};
  dladdr(reinterpret_cast<void *>(&QV_VOICE_Version), &loaded);
  if (!loaded.dli_fname)
    return 1;
  std::puts(loaded.dli_fname);
  const std::string_view path = loaded.dli_fname;
  const bool second_build = path.find("/glibc-hwcaps/x86-64-v3/libqvvoice.so") != path.npos;
  return second_build == bool(__builtin_cpu_supports("x86-64-v3")) ? 0 : 1;
}
