#include "support/child.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
extern "C" { // which glibc 2.36 leaves out
#include <sys/pidfd.h>
}

namespace qv::tool {
namespace {

void require(bool fine, int error, const std::string &what) {
  if (!fine)
    throw std::system_error(error, std::generic_category(), what);
}

/// Both ends are closed in every child but for what it is given by posix_spawn.
struct Pipe {
  int ends[2];
  Pipe() { require(pipe2(ends, O_CLOEXEC) == 0, errno, "pipe"); }
  ~Pipe() {
    close(ends[0]);
    close_writer();
  }
  Pipe(const Pipe &) = delete;
  Pipe &operator=(const Pipe &) = delete;
  void close_writer() {
    if (ends[1] >= 0)
      close(ends[1]);
    ends[1] = -1;
  }
};

pid_t spawn(const std::vector<std::string> &arguments, const Pipe &output, const Pipe &messages) {
  std::vector<char *> words;
  for (const std::string &argument : arguments)
    words.push_back(const_cast<char *>(argument.c_str()));
  words.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, output.ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, messages.ends[1], STDERR_FILENO);
  pid_t id = 0;
  const int error = posix_spawnp(&id, words[0], &actions, nullptr, words.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  require(error == 0, error, arguments[0]);
  return id;
}

using Clock = std::chrono::steady_clock;

/// Reads both pipes until the child has ended and closed them. @return false when the time is over first
bool drain(const Pipe &output, const Pipe &messages, int child, Clock::time_point end, ChildResult &result) {
  std::array<pollfd, 3> waiting{{{output.ends[0], POLLIN, 0}, {messages.ends[0], POLLIN, 0}, {child, POLLIN, 0}}};
  std::string *texts[] = {&result.output, &result.messages};
  std::array<char, 65536> buffer;
  while (std::ranges::any_of(waiting, [](const pollfd &one) { return one.fd >= 0; })) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    if (left <= 0)
      return false;
    constexpr int64_t minute = 60'000;
    if (poll(waiting.data(), waiting.size(), int(std::min(left, minute))) < 0)
      continue; // interrupted
    for (size_t i = 0; i < waiting.size(); ++i) {
      if (waiting[i].fd < 0 || waiting[i].revents == 0)
        continue;
      const ssize_t count = i < 2 ? read(waiting[i].fd, buffer.data(), buffer.size()) : 0;
      if (count > 0)
        texts[i]->append(buffer.data(), size_t(count));
      else if (count == 0 || errno != EINTR)
        waiting[i].fd = -1; // poll passes over negative descriptors
    }
  }
  return true;
}

} // namespace

ChildResult run_child(const std::vector<std::string> &arguments, std::optional<std::chrono::milliseconds> limit) {
  const auto end = limit ? Clock::now() + *limit : Clock::time_point::max();
  Pipe output, messages;
  const pid_t id = spawn(arguments, output, messages);
  output.close_writer();
  messages.close_writer();
  const int child = pidfd_open(id, 0);
  ChildResult result;
  const bool ended = drain(output, messages, child, end, result);
  close(child);
  if (!ended)
    kill(id, SIGKILL);
  int status = 0;
  while (waitpid(id, &status, 0) < 0 && errno == EINTR) {
  }
  require(ended, ETIMEDOUT, arguments[0]);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

} // namespace qv::tool
