#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace vistrelle::testing {

/// How a program ended.
struct RunResult {
  int status = -1;  ///< exit status; -1 when a signal ended it
  int signal = 0;   ///< the signal that ended it; 0 for none
  std::string output;
  std::string error;
  double seconds = 0;
};

/// A program that is running; its standard output and error are read to the end by `finish`.
class RunningProgram {
 public:
  /// `prepare` runs in the child between fork and exec, after the standard descriptors were set up.
  explicit RunningProgram(const std::vector<std::string>& command, const std::function<void()>& prepare = {});
  ~RunningProgram();
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;

  pid_t pid() const { return child_; }
  /// Reads standard error until `text` has come; false when it ended first or after 60 seconds.
  bool waitForError(const std::string& text);
  void send(int signal) const;
  /// Ends the program by SIGKILL after 60 seconds.
  RunResult finish();

 private:
  bool readSome(int timeoutMilliseconds);

  pid_t child_ = -1;
  int output_ = -1;
  int error_ = -1;
  double started_ = 0;
  RunResult result_;
};

RunResult runProgram(const std::vector<std::string>& command, const std::function<void()>& prepare = {});

/// The thumbnail tool with these arguments.
RunResult runTool(const std::vector<std::string>& arguments, const std::function<void()>& prepare = {});
std::vector<std::string> toolCommand(const std::vector<std::string>& arguments);

}  // namespace vistrelle::testing
