#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "vistrelle/platform/media/confined/channel.h"
#include "vistrelle/platform/media/confined/confinement.h"

namespace vistrelle::platform {

/// What a worker process does with its end of a channel; the process ends when it returns.
using WorkerBody = std::function<void(const Channel& channel)>;

/// A worker as its user sees it.
struct Worker {
  Channel channel;
  pid_t process = -1;
};

/// A process of one thread that makes worker processes, so that new ones can be had after threads have started here.
/// Nursery and workers close every descriptor of ours, take no interrupts from the terminal, and end when this
/// process does, however that comes. Calls may come from any thread.
class Nursery {
 public:
  /// Forks. To be called while this process has one thread, on a thread that lives as long as the process. Nothing
  /// with an error text when that is not so or the system refuses.
  /// `prepare` runs in the nursery first; an answer of the nursery's is waited for with `patience`.
  static std::unique_ptr<Nursery> start(WorkerBody body, const std::function<void()>& prepare, std::string* error,
                                        std::chrono::milliseconds patience = std::chrono::minutes(1));
  ~Nursery();
  Nursery(const Nursery&) = delete;
  Nursery& operator=(const Nursery&) = delete;

  /// A fresh worker. Nothing with an error text when there can be none.
  std::optional<Worker> makeWorker(std::string* error);
  /// Ends a worker that has not ended by itself, and tells how it ended: "signal 11 (Segmentation fault)".
  std::string endWorker(pid_t process);
  pid_t process() const { return process_; }

 private:
  Nursery(Channel channel, pid_t process, std::chrono::milliseconds patience)
      : channel_(std::move(channel)), process_(process), patience_(patience) {}
  /// Sends `question` and waits for the message that `isMeant` to answer it.
  Channel::Status ask(const Message& question, Message* answer, const std::function<bool(const Message&)>& isMeant);

  std::mutex mutex_;
  Channel channel_;
  pid_t process_;
  std::chrono::milliseconds patience_;
};

}  // namespace vistrelle::platform
