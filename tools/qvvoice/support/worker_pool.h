/// @file worker_pool.h  Work shared out among processes, so that a crash costs one piece of it.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace qv::tool {

/// What became of an order.
struct Reply {
  bool fine;        ///< whether there is a result
  std::string text; ///< the result, or why there is none: what was thrown, or which signal ended the process
};

/// Processes forked from this one, which see what it has read. A process that dies is replaced, and its order tried
/// once more: what happens to come from outside does not come twice.
class WorkerPool {
public:
  using Work = std::function<std::string(std::string_view order)>;
  using Order = std::function<std::string(size_t)>;
  using Done = std::function<void(size_t, const Reply &)>;

  /// @param work  done in the processes; what it throws is the reply's text
  /// @throws std::system_error when no process can be had
  WorkerPool(int parallel, Work work);
  ~WorkerPool(); ///< ends the processes, whatever they are at
  WorkerPool(const WorkerPool &) = delete;
  WorkerPool &operator=(const WorkerPool &) = delete;

  /// Has every order done and returns then.
  /// @param order  makes order i, 0 <= i < count
  /// @param done   called for each as soon as it is through, in any order
  void run(size_t count, const Order &order, const Done &done);

private:
  struct Worker {
    int id, socket;
    size_t at;    ///< its order, `idle` without one
    int attempts; ///< at it
  };
  static constexpr size_t idle = size_t(-1);

  Worker started() const;
  [[noreturn]] void serve(int socket) const;
  void give(Worker &worker, const std::string &order);
  bool take(Worker &worker, const Order &order, Reply &reply);

  Work work_;
  std::vector<Worker> workers_;
};

} // namespace qv::tool
