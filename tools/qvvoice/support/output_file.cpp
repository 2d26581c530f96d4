#include "support/output_file.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/error.h"

namespace qv::tool {
namespace {

namespace fs = std::filesystem;

/// Signals that stop nothing, or cannot be handled, or are handled by the write that they would end.
constexpr std::array not_terminations = {SIGKILL, SIGSTOP, SIGTSTP, SIGTTIN,  SIGTTOU,
                                         SIGCONT, SIGCHLD, SIGURG,  SIGWINCH, SIGXFSZ};

/// Every signal that ends a process.
std::vector<int> terminations() {
  std::vector<int> all;
  for (int signal = 1; signal <= SIGRTMAX; ++signal)
    if ((signal < __SIGRTMIN || signal >= SIGRTMIN) &&
        std::ranges::find(not_terminations, signal) == not_terminations.end())
      all.push_back(signal);
  return all;
}

/// The files that are open, for the signal handler: their names, and the places they are meant for.
constexpr size_t most_open = 64;
std::array<std::atomic<const char *>, most_open> open_names;
std::array<std::string, most_open> open_places;

std::string last_words;
pid_t speaker = 0;

void remove_and_die(int signal) {
  if (getpid() == speaker && write(STDERR_FILENO, last_words.data(), last_words.size()) < 0)
    speaker = 0; // nobody hears it
  for (const auto &name : open_names)
    if (const char *path = name.load())
      unlink(path);
  std::signal(signal, SIG_DFL);
  raise(signal);
}

/// Leaves a signal alone that somebody ignores or handles. A file size limit becomes an error of write().
void handle_signals() {
  std::signal(SIGXFSZ, SIG_IGN);
  for (const int signal : terminations())
    if (const auto before = std::signal(signal, remove_and_die); before != SIG_DFL)
      std::signal(signal, before);
}

/// Holds the terminating signals back, so that no file is created without being in the list.
class HeldSignals {
public:
  HeldSignals() {
    sigset_t held;
    sigemptyset(&held);
    for (const int signal : terminations())
      sigaddset(&held, signal);
    pthread_sigmask(SIG_BLOCK, &held, &before_);
  }
  ~HeldSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
  sigset_t before_;
};

bool same_file(const std::string &a, const std::string &b) {
  struct stat first, second;
  return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
         first.st_ino == second.st_ino;
}

size_t free_slot(const std::string &path, const std::string &place) {
  size_t slot = most_open;
  for (size_t i = most_open; i-- > 0;)
    if (!open_names[i])
      slot = i;
    else if (open_places[i] == place)
      throw InputError("{}: named for two results; each needs a file of its own", path);
  if (slot == most_open)
    throw InputError("{}: more than {} results at a time", path, most_open);
  return slot;
}

} // namespace

void say_when_terminated(const std::string &message) {
  last_words = message;
  speaker = getpid();
  handle_signals();
}

void leave_output_files() {
  for (auto &name : open_names)
    name = nullptr;
  for (const int signal : terminations())
    if (const auto before = std::signal(signal, SIG_DFL); before != remove_and_die)
      std::signal(signal, before);
}

OutputFile::OutputFile(const std::string &path, std::span<const std::string> inputs) : path_(path) {
  if (path.empty())
    throw InputError("a result has an empty file name");
  std::error_code error;
  if (path == "-" || fs::is_fifo(path, error)) {
    open_pipe();
    return;
  }
  for (const std::string &input : inputs)
    if (same_file(path, input))
      throw InputError("{}: is the input {}; write the result to another file", path, input);
  if (fs::exists(path, error) && !fs::is_regular_file(path, error))
    throw InputError("{}: is not a regular file; name a file to write", path);
  place_ = fs::weakly_canonical(fs::absolute(path), error).string();
  if (error)
    throw InputError("{}: cannot be written: {}", path, error.message());
  slot_ = free_slot(path, place_);
  create_beside_place();
}

void OutputFile::open_pipe() {
  if (path_ == "-")
    path_ = "standard output";
  const bool standard = path_ == "standard output";
  descriptor_ = standard ? fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0) : open(path_.c_str(), O_WRONLY | O_CLOEXEC);
  if (descriptor_ < 0)
    throw InputError("{}: cannot be written: {}", path_, std::strerror(errno));
  std::signal(SIGPIPE, SIG_IGN);
}

bool OutputFile::is_terminal() const { return isatty(descriptor_) == 1; }

void OutputFile::create_beside_place() {
  static const bool handled = (handle_signals(), true);
  (void)handled;
  const HeldSignals held;
  const std::string stem = (fs::path(place_).parent_path() / fmt::format(".qvvoice-{}-{}-", getpid(), slot_)).string();
  for (int attempt = 0; descriptor_ < 0; ++attempt) {
    temporary_ = fmt::format("{}{}.part", stem, attempt);
    descriptor_ = open(temporary_->c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor_ < 0 && errno != EEXIST)
      throw InputError("{}: cannot be written: {}", path_, std::strerror(errno));
  }
  open_places[slot_] = place_;
  open_names[slot_] = temporary_->c_str();
}

OutputFile::~OutputFile() {
  if (descriptor_ < 0)
    return;
  close(descriptor_);
  if (is_pipe())
    return;
  unlink(temporary_->c_str());
  open_names[slot_] = nullptr;
}

void OutputFile::fail(std::string_view doing) const {
  throw std::runtime_error(fmt::format("{}: {} failed: {}", path_, doing,
                                       errno == EPIPE ? "what reads the pipe has closed it" : std::strerror(errno)));
}

void OutputFile::write(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor_, text.data(), text.size());
    if (written >= 0)
      text.remove_prefix(size_t(written));
    else if (errno != EINTR)
      fail("writing");
  }
}

void OutputFile::rewrite(size_t at, std::string_view text) {
  if (pwrite(descriptor_, text.data(), text.size(), off_t(at)) != ssize_t(text.size()))
    fail("writing");
}

void OutputFile::commit() {
  if (is_pipe())
    return;
  if (std::rename(temporary_->c_str(), place_.c_str()) != 0)
    fail("renaming into place");
  open_names[slot_] = nullptr;
  close(std::exchange(descriptor_, -1));
}

} // namespace qv::tool
