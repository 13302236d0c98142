#pragma once

#include <sys/types.h>

#include <optional>

#include "vistrelle/platform/files/unique_fd.h"
#include "vistrelle/platform/process/process.h"

namespace vistrelle::platform {

struct Pipe {
  UniqueFd reading;
  UniqueFd writing;
};

/// Both ends are closed in children and lie above the standard streams; nothing when no descriptor is left.
std::optional<Pipe> makePipe();

/// The descriptors that become a child's standard streams; -1 leaves this process's own.
struct StandardStreams {
  int input = -1;
  int output = -1;
  int error = -1;
};

/// Starts a child; nothing (with a log line) when that fails.
std::optional<pid_t> spawn(const Command& command, const StandardStreams& streams);

/// A child that is waited for. What still runs at the end is left to a thread that ends with it.
class Child {
 public:
  explicit Child(pid_t process);
  ~Child();
  Child(Child&& other) noexcept;
  Child& operator=(Child&&) = delete;
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// Waits at most so many milliseconds for the exit (-1: without end); true once it has ended.
  bool waitForExit(int milliseconds);
  /// Becomes readable when the child has ended; -1 where the system offers no such descriptor.
  int exitDescriptor() const { return exit_.get(); }

 private:
  bool reap();

  pid_t process_;
  UniqueFd exit_;
};

}  // namespace vistrelle::platform
