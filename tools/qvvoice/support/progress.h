/// @file progress.h  How far a long step has come.
#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

#include "support/progress_fn.h"

namespace qv::tool {

/// A line on the terminal that standard error is, as long as this object lives and no other one is made meanwhile;
/// nothing anywhere else. It shows the time that has passed until somebody tells more. Pass it on with std::ref.
class Progress {
public:
  /// @param unit  of what is counted, " s" and the like
  explicit Progress(std::string label, std::string unit = "");
  ~Progress(); ///< wipes the line
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;

  void operator()(size_t done, size_t total);
  void wipe(); ///< before another line is printed

private:
  void draw();

  std::string label_, unit_;
  Progress *around_; ///< what is shown again after this one
  std::mutex guard_; ///< of what follows
  size_t done_ = 0, total_ = 0;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  std::jthread painter_; ///< none without a terminal
};

} // namespace qv::tool
