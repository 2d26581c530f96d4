#include "audio/pipe.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <unistd.h>

#include "support/error.h"

namespace qv::tool {
namespace {

constexpr size_t least_kept = 1 << 16, most_kept = 1 << 18; // bytes; more than any block of an encoding
constexpr size_t most_at_once = 1 << 16;                    // as much as a pipe holds

} // namespace

/// Takes what is there of `count` more bytes. @return whether the pipe goes on
bool PipeBytes::receive(size_t count) {
  if (kept_.size() > most_kept) {
    begin_ += kept_.size() - least_kept;
    kept_.erase(0, kept_.size() - least_kept);
  }
  const size_t before = kept_.size();
  kept_.resize(before + std::min(count, most_at_once));
  const ssize_t got = ::read(descriptor_, kept_.data() + before, kept_.size() - before);
  const int error = got < 0 ? errno : 0;
  kept_.resize(before + size_t(std::max<ssize_t>(got, 0)));
  if (got < 0 && error != EINTR)
    throw InputError("{}: cannot be read at byte {}: {}", name_, received(), std::strerror(error));
  return got != 0;
}

size_t PipeBytes::read(uint64_t at, char *to, size_t count) {
  if (at < begin_)
    throw InputError("{}: its encoding needs a way back to byte {}, which a pipe does not have; write it to a file "
                     "first",
                     name_, at);
  while (received() < at && receive(size_t(std::min<uint64_t>(at - received(), most_at_once)))) {
  }
  size_t done = 0;
  while (done < count) {
    if (received() <= at + done && !receive(count - done))
      break;
    const size_t part = std::min(size_t(received() - at - done), count - done);
    std::memcpy(to + done, kept_.data() + (at + done - begin_), part);
    done += part;
  }
  return done;
}

} // namespace qv::tool
