#include "audio/container.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/error.h"

namespace qv::tool {

InputFile::InputFile(const std::string &path) : path_(path) {
  struct stat found {};
  if (stat(path.c_str(), &found) != 0)
    throw InputError("{}: {}", path, errno == ENOENT ? "no such file" : std::strerror(errno));
  if (S_ISDIR(found.st_mode))
    throw InputError("{}: is a folder; name an audio file", path);
  if (!S_ISREG(found.st_mode))
    throw InputError("{}: is a pipe or a device, which are not read yet; write it to a file first", path);
  if (found.st_size == 0)
    throw InputError("{}: is empty; an audio file with at least one sample is needed", path);
  size_ = uint64_t(found.st_size);
  descriptor_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor_ < 0)
    throw InputError("{}: cannot be read: {}", path, std::strerror(errno));
}

InputFile::~InputFile() { close(descriptor_); }

size_t InputFile::read(uint64_t at, char *to, size_t count) const {
  size_t done = 0;
  while (done < count) {
    const ssize_t got = pread(descriptor_, to + done, count - done, off_t(at + done));
    if (got == 0)
      break;
    if (got > 0)
      done += size_t(got);
    else if (errno != EINTR)
      throw InputError("{}: cannot be read at byte {}: {}", path_, at + done, std::strerror(errno));
  }
  return done;
}

std::string InputFile::bytes(uint64_t at, size_t count) const {
  std::string bytes(count, '\0');
  bytes.resize(read(at, bytes.data(), count));
  return bytes;
}

} // namespace qv::tool
