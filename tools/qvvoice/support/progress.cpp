#include "support/progress.h"

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

Progress::Progress(std::string label)
    : label_(std::move(label)), terminal_(isatty(STDERR_FILENO) == 1),
      next_(std::chrono::steady_clock::now() + first_draw_after) {}

Progress::~Progress() {
  if (drawn_)
    fmt::print(stderr, "\r\033[K");
}

void Progress::operator()(size_t done, size_t total) {
  const auto now = std::chrono::steady_clock::now();
  if (!terminal_ || total == 0 || now < next_)
    return;
  next_ = now + redraw_after;
  drawn_ = true;
  const size_t filled = bar_width * done / total;
  fmt::print(stderr, "\r{} [{:#<{}}{:.<{}}] {:3}%", label_, "", filled, "", bar_width - filled, 100 * done / total);
  std::fflush(stderr);
}

} // namespace qv::tool
