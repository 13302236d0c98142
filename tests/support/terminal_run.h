#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace vistrelle::testing {

/// Runs an action in a child process whose controlling terminal is a pseudo terminal of the test's.
class TerminalRun {
 public:
  enum class Group { Foreground, Background };
  /// The action's text is the run's result. Standard error goes to the terminal, or nowhere.
  explicit TerminalRun(const std::function<std::string()>& action, Group group = Group::Foreground,
                       bool errorsToTerminal = true);
  ~TerminalRun();
  TerminalRun(const TerminalRun&) = delete;
  TerminalRun& operator=(const TerminalRun&) = delete;

  void type(const std::string& keys) const;
  /// Waits until the terminal shows `text`, at most a minute.
  bool shows(const std::string& text);
  /// The result, waited for at most `seconds`; "(nothing)" when there is none by then.
  std::string result(double seconds = 60);
  const std::string& screen() const { return screen_; }
  /// Whether the terminal takes whole lines with their editing, as it did at first.
  bool isInLineMode() const;
  /// Waits until it takes single keys, at most a minute.
  bool takesKeys() const;

 private:
  bool readScreen(int milliseconds);

  pid_t child_ = -1;
  int terminal_ = -1;
  int answers_ = -1;
  std::string screen_;
};

}  // namespace vistrelle::testing
