#include "support/progress.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <utility>

#include <fmt/format.h>
#include <unistd.h>

namespace qv::tool {
namespace {

constexpr size_t bar_width = 40;                           // characters
constexpr std::chrono::milliseconds first_draw_after{300}; // a short step shows nothing at all
constexpr std::chrono::milliseconds redraw_after{100};

std::atomic<Progress *> shown = nullptr; ///< the last one made

std::string clock_text(double seconds) { return fmt::format("{}:{:02}", size_t(seconds) / 60, size_t(seconds) % 60); }

} // namespace

Progress::Progress(std::string label, std::string unit)
    : label_(std::move(label)), unit_(std::move(unit)), around_(shown.exchange(this)) {
  if (isatty(STDERR_FILENO) != 1)
    return;
  sigset_t all, before; // signals are for the thread that works
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);
  painter_ = std::jthread([this](std::stop_token stop) {
    std::unique_lock lock(guard_);
    std::condition_variable_any sleep;
    for (auto wait = first_draw_after; !sleep.wait_for(lock, stop, wait, [&] { return stop.stop_requested(); });
         wait = redraw_after)
      if (shown == this)
        draw();
  });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

Progress::~Progress() {
  if (painter_.joinable()) {
    painter_.request_stop();
    painter_.join();
  }
  wipe();
  shown = around_;
}

void Progress::wipe() {
  const std::lock_guard lock(guard_);
  if (std::exchange(drawn_, false))
    fmt::print(stderr, "\r\033[K");
}

void Progress::operator()(size_t done, size_t total) {
  const std::lock_guard lock(guard_);
  done_ = total > 0 ? std::min(done, total) : done;
  total_ = total;
}

void Progress::draw() {
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin_;
  std::string line = label_;
  if (total_ > 0) {
    const size_t filled = bar_width * done_ / total_;
    line += fmt::format(" [{:#<{}}{:.<{}}] {:3}%, {} of {}{}", "", filled, "", bar_width - filled, 100 * done_ / total_,
                        done_, total_, unit_);
  } else if (done_ > 0) {
    line += fmt::format(" {}{}", done_, unit_);
  }
  if (done_ > 0 && done_ < total_)
    line += fmt::format(", {} left", clock_text(taken.count() * double(total_ - done_) / double(done_)));
  else
    line += fmt::format(", {}", clock_text(taken.count()));
  fmt::print(stderr, "\r\033[K{}", line);
  std::fflush(stderr);
  drawn_ = true;
}

} // namespace qv::tool
