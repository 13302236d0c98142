#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vistrelle/platform/base/seam.h"

#pragma GCC visibility push(default)

namespace vistrelle::platform {

using Environment = std::map<std::string, std::string, std::less<>>;

/// A copy of this process's environment.
Environment currentEnvironment();

/// One program to run. Nothing in it is interpreted by a shell, unless the program is one.
struct Command {
  /// Full path; no search path is used.
  std::string program;
  /// The words after the program's own name.
  std::vector<std::string> arguments;
  Environment environment;
  /// The folder it starts in; empty: this process's own.
  std::string folder;
};

struct ProcessOutput {
  /// All that came; absent when a program could not be started or wrote more than the runner takes.
  std::optional<std::string> bytes;
  /// What the pipe it came through can hold.
  std::size_t pipeCapacity = 0;
};

/// Runs child processes. A child gets this process's standard streams where nothing else is said, no other
/// descriptor, an empty signal mask and the default reaction to every signal. Every child is waited for in the end,
/// so that none stays as a zombie. A program that cannot be started costs one log line. Any thread.
class ProcessRunner {
 public:
  virtual ~ProcessRunner() = default;
  /// Starts all commands in order, each one's standard output being the next one's standard input; the last one's
  /// output and errors are read together until every writer has closed. Does not wait for the exit of a command
  /// that goes on without the pipe. When one cannot be started, those after it are not.
  virtual ProcessOutput runPipeline(const std::vector<Command>& commands) = 0;
  /// Runs one command and reads its standard output until the command itself has ended; what a descendant writes
  /// later into the pipe is not waited for.
  virtual ProcessOutput run(const Command& command) = 0;
  /// Starts a command and returns at once; true when it was started.
  virtual bool launch(const Command& command) = 0;
};

/// Passes every call on; a test overrides what it wants to see.
class ForwardingProcessRunner : public ProcessRunner {
 public:
  explicit ForwardingProcessRunner(std::shared_ptr<ProcessRunner> target) : target_(std::move(target)) {}
  ProcessOutput runPipeline(const std::vector<Command>& commands) override { return target_->runPipeline(commands); }
  ProcessOutput run(const Command& command) override { return target_->run(command); }
  bool launch(const Command& command) override { return target_->launch(command); }

 private:
  std::shared_ptr<ProcessRunner> target_;
};

/// The largest output that is taken; a program that writes more loses its pipe.
constexpr std::size_t kLargestProcessOutput = std::size_t{1} << 30U;

std::shared_ptr<ProcessRunner> spawningProcessRunner(std::size_t largestOutput = kLargestProcessOutput);

Seam<ProcessRunner>& processRunner();

}  // namespace vistrelle::platform

#pragma GCC visibility pop
