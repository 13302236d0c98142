#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>

namespace vistrelle::testing {

/// Environment variables set (or, with nothing, removed) while it lives.
class Environment {
 public:
  using Variables = std::map<std::string, std::optional<std::string>>;
  explicit Environment(const Variables& variables);
  ~Environment();
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  Variables former_;
};

/// Lets go of the controlling terminal, if there is one, so that nobody at the developer's screen is asked.
void leaveTerminal();

/// An X server without a screen, of its own number. It ends with the object.
class VirtualDisplay {
 public:
  VirtualDisplay();
  ~VirtualDisplay();
  VirtualDisplay(const VirtualDisplay&) = delete;
  VirtualDisplay& operator=(const VirtualDisplay&) = delete;

  /// ":7"; empty when no server could be started.
  const std::string& name() const { return name_; }
  /// Ends the server as a crash would; the processes that show something on it lose their connection.
  void kill();
  /// Stops it in its tracks: connections stay, nothing is answered.
  void freeze();

 private:
  pid_t server_ = -1;
  std::string name_;
};

}  // namespace vistrelle::testing
