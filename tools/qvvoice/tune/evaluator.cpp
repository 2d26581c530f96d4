#include "tune/evaluator.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <malloc.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

#include "measure/set.h"
#include "support/error.h"

namespace qv::tool::tune {
namespace {

namespace fs = std::filesystem;

Numbers numbers_of(const measure::Results &results) {
  Numbers numbers;
  for (const measure::Measure &measure : measure::measures()) {
    const bool speed =
        measure.value == &measure::Results::real_time_factor || measure.value == &measure::Results::worst_frame_percent;
    const measure::Value &value = results.*measure.value;
    numbers.push_back(speed ? std::nan("") : value.number());
  }
  return numbers;
}

struct Order {
  config::Image image;
  size_t recording;
};

/// The whole of a record, or nothing at the end of the stream.
bool read_all(int socket, void *record, size_t size) {
  auto *bytes = static_cast<char *>(record);
  while (size > 0) {
    const ssize_t count = read(socket, bytes, size);
    if (count == 0 || (count < 0 && errno != EINTR))
      return false;
    bytes += std::max<ssize_t>(count, 0);
    size -= size_t(std::max<ssize_t>(count, 0));
  }
  return true;
}

/// Does what comes until nothing more comes. A worker does the same again and again: memory that it has had stays.
template <class Work> [[noreturn]] void serve(int socket, const Work &work) {
  std::signal(SIGINT, SIG_DFL); // results are the parent's
  constexpr int never = 1 << 30;
  mallopt(M_MMAP_THRESHOLD, never);
  mallopt(M_TRIM_THRESHOLD, never);
  Order order;
  while (read_all(socket, &order, sizeof order)) {
    const Numbers numbers = work(order);
    if (write(socket, numbers.data(), numbers.size() * sizeof(double)) < 0)
      break;
  }
  _exit(0);
}

} // namespace

void Evaluator::read(const std::string &folder) {
  const Progress bar("reading calls");
  for (const std::string &path : measure::recording_folders(folder)) {
    measure::Subject subject = measure::read_folder(path);
    if (subject.rate != rate_)
      continue;
    names_.push_back(fs::path(path).lexically_relative(folder).string());
    subjects_.push_back(std::move(subject));
  }
  if (subjects_.empty())
    throw InputError("{}: has no recording at {} Hz; the parameters are for that rate", folder, rate_);
  for (const measure::Subject &subject : subjects_)
    known_.emplace_back(subject);
}

Evaluator::Evaluator(const std::string &folder, int rate, int frame_ms, int parallel)
    : rate_(rate), frame_ms_(frame_ms) {
  read(folder);
  for (int i = 0; i < parallel; ++i)
    start_worker();
}

uint64_t Evaluator::checksum() const {
  uint64_t hash = 0xCBF29CE484222325;
  for (const measure::Subject &subject : subjects_)
    for (const auto *samples : {&subject.mic, &subject.ref})
      for (const int16_t sample : *samples)
        hash = (hash ^ uint16_t(sample)) * 0x100000001B3;
  return hash;
}

void Evaluator::start_worker() {
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
    serve(ends[1], [this](const Order &order) {
      const measure::Known &known = known_[order.recording];
      const Setup setup{order.image, "", rate_, rate_ / 1000 * frame_ms_};
      return numbers_of(measure::measure(known, measure::run_library(known.subject, setup)));
    });
  }
  close(ends[1]);
  workers_.push_back({id, ends[0]});
}

Evaluator::~Evaluator() {
  for (const Worker &worker : workers_) {
    close(worker.socket);
    kill(worker.id, SIGKILL);
    waitpid(worker.id, nullptr, 0);
  }
}

void Evaluator::evaluate(const std::vector<config::Image> &images, const Done &done) {
  const size_t count = known_.size(), jobs = images.size() * count;
  std::vector<Numbers> results(jobs);
  std::vector<size_t> at(workers_.size(), jobs); // job of each worker; `jobs`: idle
  size_t next = 0, reported = 0;
  const auto give = [&](size_t w) {
    at[w] = next;
    if (next == jobs)
      return;
    const Order order{images[next / count], next % count};
    ++next;
    if (send(workers_[w].socket, &order, sizeof order, MSG_NOSIGNAL) != ssize_t(sizeof order))
      throw std::system_error(errno, std::generic_category(), "worker");
  };
  for (size_t w = 0; w < workers_.size(); ++w)
    give(w);
  while (reported < images.size()) {
    std::vector<pollfd> waiting;
    for (size_t w = 0; w < workers_.size(); ++w)
      waiting.push_back({at[w] < jobs ? workers_[w].socket : -1, POLLIN, 0});
    if (poll(waiting.data(), waiting.size(), -1) < 0)
      continue; // interrupted
    for (size_t w = 0; w < workers_.size(); ++w) {
      if (waiting[w].fd < 0 || waiting[w].revents == 0)
        continue;
      Numbers numbers(measure::measures().size());
      if (!read_all(workers_[w].socket, numbers.data(), numbers.size() * sizeof(double)))
        throw std::runtime_error(fmt::format("{}: the process that measured it has died", names_[at[w] % count]));
      results[at[w]] = std::move(numbers);
      give(w);
    }
    const auto through = [&](size_t image) {
      const auto begin = results.begin() + std::ptrdiff_t(image * count);
      return std::none_of(begin, begin + std::ptrdiff_t(count), [](const Numbers &numbers) { return numbers.empty(); });
    };
    for (; reported < images.size() && through(reported); ++reported)
      done(reported, {results.begin() + std::ptrdiff_t(reported * count),
                      results.begin() + std::ptrdiff_t((reported + 1) * count)});
  }
}

} // namespace qv::tool::tune
