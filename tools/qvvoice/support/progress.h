/// @file progress.h  How far a long step has come.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

namespace qv::tool {

/// Called with how much is done of how much, 0 when that is not known; empty where nobody looks.
using ProgressFn = std::function<void(size_t done, size_t total)>;

/// A bar on the terminal that standard error is; nothing anywhere else. Pass it on with std::ref.
class Progress {
public:
  /// @param unit  of what is counted, " s" and the like
  explicit Progress(std::string label, std::string unit = "");
  ~Progress(); ///< wipes the bar
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;

  void operator()(size_t done, size_t total);
  void wipe(); ///< before another line is printed

private:
  std::string label_, unit_;
  bool terminal_;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point next_; ///< not drawn again before
};

} // namespace qv::tool
