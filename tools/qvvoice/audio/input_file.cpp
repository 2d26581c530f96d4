#include "audio/container.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/error.h"

namespace qv::tool {

std::string input_name(const std::string &path) { return is_standard_stream(path) ? "standard input" : path; }

InputFile::InputFile(const std::string &path)
    : path_(input_name(path)), descriptor_(is_standard_stream(path) ? STDIN_FILENO : -1) {
  if (descriptor_ == STDIN_FILENO) {
    open_pipe();
    return;
  }
  struct stat found {};
  if (stat(path.c_str(), &found) != 0)
    throw InputError("{}: {}", path, errno == ENOENT ? "no such file" : std::strerror(errno));
  if (S_ISDIR(found.st_mode))
    throw InputError("{}: is a folder; name an audio file", path);
  if (!S_ISREG(found.st_mode) && !S_ISFIFO(found.st_mode))
    throw InputError("{}: is a device; record from it with arecord or ffmpeg, into a file or into a pipe that --mic - "
                     "reads",
                     path);
  if (S_ISREG(found.st_mode) && found.st_size == 0)
    throw InputError("{}: is empty; an audio file with at least one sample is needed", path);
  size_ = uint64_t(found.st_size);
  descriptor_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor_ < 0)
    throw InputError("{}: cannot be read: {}", path, std::strerror(errno));
  if (S_ISFIFO(found.st_mode))
    open_pipe();
}

InputFile::~InputFile() {
  if (descriptor_ != STDIN_FILENO)
    close(descriptor_);
}

void InputFile::open_pipe() {
  if (isatty(descriptor_))
    throw InputError("{}: is a terminal; let a program write a recording into it: arecord ... | qvvoice process --mic "
                     "- ...",
                     path_);
  pipe_ = std::make_unique<PipeBytes>(descriptor_, path_);
  size_ = endless;
}

size_t InputFile::read(uint64_t at, char *to, size_t count) const {
  if (pipe_)
    return pipe_->read(at, to, count);
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
