#include "support/worker_pool.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <exception>
#include <malloc.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

#include <fmt/format.h>

#include "support/output_file.h"

namespace qv::tool {
namespace {

/// The whole of it, or false at the end of the stream.
bool read_all(int socket, char *bytes, size_t size) {
  while (size > 0) {
    const ssize_t count = read(socket, bytes, size);
    if (count == 0 || (count < 0 && errno != EINTR))
      return false;
    bytes += std::max<ssize_t>(count, 0);
    size -= size_t(std::max<ssize_t>(count, 0));
  }
  return true;
}

bool write_all(int socket, const char *bytes, size_t size) {
  while (size > 0) {
    const ssize_t count = send(socket, bytes, size, MSG_NOSIGNAL);
    if (count < 0 && errno != EINTR)
      return false;
    bytes += std::max<ssize_t>(count, 0);
    size -= size_t(std::max<ssize_t>(count, 0));
  }
  return true;
}

/// A text goes as its length and its bytes.
bool write_text(int socket, std::string_view text) {
  const uint64_t size = text.size();
  return write_all(socket, reinterpret_cast<const char *>(&size), sizeof size) &&
         write_all(socket, text.data(), text.size());
}

bool read_text(int socket, std::string &text) {
  uint64_t size = 0;
  if (!read_all(socket, reinterpret_cast<char *>(&size), sizeof size))
    return false;
  text.resize(size);
  return read_all(socket, text.data(), size);
}

std::string end_of(int status) {
  return WIFSIGNALED(status)
             ? fmt::format("its process was ended by signal {} ({})", WTERMSIG(status), strsignal(WTERMSIG(status)))
             : fmt::format("its process ended by itself with status {}", WEXITSTATUS(status));
}

} // namespace

WorkerPool::WorkerPool(int parallel, Work work) : work_(std::move(work)) {
  for (int i = 0; i < parallel; ++i)
    workers_.push_back(started());
}

WorkerPool::~WorkerPool() {
  for (const Worker &worker : workers_) {
    close(worker.socket);
    kill(worker.id, SIGKILL);
    waitpid(worker.id, nullptr, 0);
  }
}

WorkerPool::Worker WorkerPool::started() const {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
    throw std::system_error(errno, std::generic_category(), "socketpair");
  const pid_t id = fork();
  if (id < 0)
    throw std::system_error(errno, std::generic_category(), "fork");
  if (id == 0) {
    close(ends[0]);
    for (const Worker &other : workers_)
      close(other.socket); // a worker ends when its own is closed
    serve(ends[1]);
  }
  close(ends[1]);
  return {id, ends[0], idle, 0};
}

/// A worker does much the same again and again: memory that it has had stays.
void WorkerPool::serve(int socket) const {
  leave_output_files();
  constexpr int never = 1 << 30;
  mallopt(M_MMAP_THRESHOLD, never);
  mallopt(M_TRIM_THRESHOLD, never);
  for (std::string order; read_text(socket, order);) {
    Reply reply{true, {}};
    try {
      reply.text = work_(order);
    } catch (const std::exception &error) {
      reply = {false, error.what()};
    }
    if (!write_text(socket, reply.fine ? "+" : "-") || !write_text(socket, reply.text))
      break;
  }
  _exit(0);
}

/// What a dead process does not take shows when its reply is read.
void WorkerPool::give(Worker &worker, const std::string &order) {
  ++worker.attempts;
  write_text(worker.socket, order);
}

/// @return whether there is a reply; else the order has been given to another process
bool WorkerPool::take(Worker &worker, const Order &order, Reply &reply) {
  std::string sign;
  if (read_text(worker.socket, sign) && read_text(worker.socket, reply.text)) {
    reply.fine = sign == "+";
    return true;
  }
  int status = 0;
  waitpid(worker.id, &status, 0);
  close(worker.socket);
  const Worker dead = worker;
  worker = started();
  if (dead.attempts < 2) {
    worker.at = dead.at;
    worker.attempts = dead.attempts;
    give(worker, order(worker.at));
    return false;
  }
  reply = {false, end_of(status)};
  return true;
}

void WorkerPool::run(size_t count, const Order &order, const Done &done) {
  size_t next = 0, through = 0;
  const auto give_next = [&](Worker &worker) {
    worker.at = next < count ? next++ : idle;
    worker.attempts = 0;
    if (worker.at != idle)
      give(worker, order(worker.at));
  };
  for (Worker &worker : workers_)
    give_next(worker);
  while (through < count) {
    std::vector<pollfd> waiting;
    for (const Worker &worker : workers_)
      waiting.push_back({worker.at != idle ? worker.socket : -1, POLLIN, 0}); // poll passes over negative descriptors
    if (poll(waiting.data(), waiting.size(), -1) < 0)
      continue; // interrupted
    for (size_t w = 0; w < workers_.size(); ++w) {
      Worker &worker = workers_[w];
      const size_t at = worker.at;
      Reply reply{};
      if (waiting[w].revents == 0 || !take(worker, order, reply))
        continue;
      ++through;
      give_next(worker);
      done(at, reply);
    }
  }
}

} // namespace qv::tool
