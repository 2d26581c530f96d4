#include "support/progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include <fmt/format.h>
#include <unistd.h>

namespace qv::tool {
namespace {

constexpr size_t bar_width = 40;                           // characters
constexpr std::chrono::milliseconds first_draw_after{300}; // a short step shows no bar at all
constexpr std::chrono::milliseconds redraw_after{100};

} // namespace

Progress::Progress(std::string label, std::string unit)
    : label_(std::move(label)), unit_(std::move(unit)), terminal_(isatty(STDERR_FILENO) == 1),
      next_(std::chrono::steady_clock::now() + first_draw_after) {}

Progress::~Progress() { wipe(); }

void Progress::wipe() {
  if (drawn_)
    fmt::print(stderr, "\r\033[K");
}

void Progress::operator()(size_t done, size_t total) {
  const auto now = std::chrono::steady_clock::now();
  if (!terminal_ || now < next_)
    return;
  next_ = now + redraw_after;
  drawn_ = true;
  done = total > 0 ? std::min(done, total) : done;
  if (total == 0) {
    fmt::print(stderr, "\r\033[K{} {}{}", label_, done, unit_);
    std::fflush(stderr);
    return;
  }
  const size_t filled = bar_width * done / total;
  const std::chrono::duration<double> taken = now - begin_;
  const double left = done > 0 ? taken.count() * double(total - done) / double(done) : 0;
  fmt::print(stderr, "\r\033[K{} [{:#<{}}{:.<{}}] {:3}%, {} of {}{}, {:.0f}:{:02.0f} left", label_, "", filled, "",
             bar_width - filled, 100 * done / total, done, total, unit_, std::floor(left / 60),
             std::floor(std::fmod(left, 60)));
  std::fflush(stderr);
}

} // namespace qv::tool
