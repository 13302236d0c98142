#pragma once

#include <poll.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vistrelle::platform {

/// What a worker process makes of a task. After an answer that is its last the process ends and another takes its
/// place.
struct TaskAnswer {
  std::string text;
  bool isLast = false;
};
using TaskBody = std::function<TaskAnswer(std::string_view task)>;
/// Runs once in every worker process, before its first task.
using WorkerSetup = std::function<TaskBody()>;

struct WorkerPoolOptions {
  std::size_t workers = 1;
  /// A worker that has not answered by then is killed.
  std::chrono::milliseconds timeout = std::chrono::minutes(10);
  /// Private memory of a worker and of each process that it starts (RLIMIT_DATA), and the size of a file that one may
  /// write (RLIMIT_FSIZE); 0: as this process. Not under the sanitizers, whose memory cannot be limited.
  std::uint64_t memoryBytes = 0;
};

/// How a task ended.
struct TaskEnd {
  enum class How {
    answered,   ///< `text` is the answer
    timedOut,   ///< the worker was killed
    died,       ///< the worker ended before it answered; `text` tells how: "signal 11 (Segmentation fault)"
    cancelled,  ///< by cancelAll()
  };
  std::uint64_t task = 0;
  How how = How::answered;
  std::string text;
};

/// Processes forked from this one that perform tasks, one at a time each. Forked when first needed and kept; one that
/// ends, crashes or is killed is replaced when there is another task. Workers end with this process, however that ends;
/// they have no terminal, take no signals that are meant for it, and have nothing open but standard error.
///
/// For a process of one thread. Nothing here waits for a worker, except the destructor, for seconds at most.
class WorkerPool {
 public:
  WorkerPool(WorkerSetup setup, const WorkerPoolOptions& options);
  /// Kills all.
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  /// Whether another task can be taken now.
  bool hasRoom() const;
  std::size_t running() const;
  /// Hands a task to a worker. False when no process could be made; nothing has happened then.
  bool start(std::uint64_t task, std::string_view text);

  /// What to poll until collect() has something to do.
  void addDescriptors(std::vector<pollfd>* descriptors) const;
  /// Milliseconds until collect() has something to do even so; -1: never.
  int millisecondsLeft() const;
  /// Works on what has come, without waiting; the tasks that have ended.
  std::vector<TaskEnd> collect();
  /// Kills every worker that is at work.
  std::vector<TaskEnd> cancelAll();

  /// The processes that are at work.
  std::vector<pid_t> processes() const;

 private:
  struct Worker;
  std::unique_ptr<Worker> makeWorker();
  void end(std::unique_ptr<Worker>& worker);
  void reap();

  WorkerSetup setup_;
  WorkerPoolOptions options_;
  std::vector<std::unique_ptr<Worker>> workers_;
  std::vector<pid_t> leaving_;  // killed, not waited for yet
};

}  // namespace vistrelle::platform
