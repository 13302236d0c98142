#pragma once

#include <sys/types.h>

#include <optional>

#include "vistrelle/platform/dialogs/toolkit.h"

namespace vistrelle::platform {

/// A running helper and our end of its socket, which is non-blocking. The end of the object takes the window away and
/// waits for the helper's end, at most a second before it is killed.
class HelperProcess {
 public:
  /// Empty when the process cannot be started.
  static std::optional<HelperProcess> start(const DialogFiles& files);
  HelperProcess(HelperProcess&& other) noexcept;
  HelperProcess& operator=(HelperProcess&&) = delete;
  ~HelperProcess();

  int socket() const { return socket_; }
  pid_t process() const { return process_; }

 private:
  HelperProcess(pid_t process, int socket) : process_(process), socket_(socket) {}

  pid_t process_;
  int socket_;
};

}  // namespace vistrelle::platform
