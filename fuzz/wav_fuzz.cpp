// Audio files of any content: samples, or a refusal.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "audio/audio.h"
#include "support/error.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using namespace qv::tool;
  const int file = memfd_create("input", 0);
  if (file < 0 || write(file, data, size) != ssize_t(size))
    std::abort();
  const std::string path = "/proc/self/fd/" + std::to_string(file);
  for (const int channel : {0, 2}) {
    Source source;
    source.path = path;
    source.channel = channel;
    try {
      if (read_audio(source).audio.samples.empty())
        std::abort(); // an empty recording is refused
    } catch (const InputError &) {
    }
  }
  close(file);
  return 0;
}
