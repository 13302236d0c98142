#include "tests/support/tool_run.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <stdexcept>
#include <thread>

namespace vistrelle::testing {
namespace {

constexpr double kLimitSeconds = 60;

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

RunningProgram::RunningProgram(const std::vector<std::string>& command, const std::function<void()>& prepare) {
  std::vector<char*> arguments;
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  int output[2];
  int error[2];
  if (::pipe2(output, O_CLOEXEC) != 0 || ::pipe2(error, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
  started_ = now();
  child_ = ::fork();
  if (child_ == 0) {
    const int null = ::open("/dev/null", O_RDONLY);
    ::dup2(null, STDIN_FILENO);
    ::dup2(output[1], STDOUT_FILENO);
    ::dup2(error[1], STDERR_FILENO);
    if (prepare) prepare();
    ::execvp(arguments[0], arguments.data());
    ::_exit(127);
  }
  ::close(output[1]);
  ::close(error[1]);
  output_ = output[0];
  error_ = error[0];
}

RunningProgram::~RunningProgram() {
  if (child_ > 0) {
    ::kill(child_, SIGKILL);
    ::waitpid(child_, nullptr, 0);
  }
  if (output_ >= 0) ::close(output_);
  if (error_ >= 0) ::close(error_);
}

bool RunningProgram::readSome(int timeoutMilliseconds) {
  std::array<pollfd, 2> ready{{{output_, POLLIN, 0}, {error_, POLLIN, 0}}};
  if (::poll(ready.data(), ready.size(), timeoutMilliseconds) <= 0) return true;
  std::array<char, 65536> buffer{};
  const auto drain = [&buffer](pollfd& entry, int& descriptor, std::string& text) {
    if (descriptor < 0 || entry.revents == 0) return;
    const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
    if (count > 0) {
      text.append(buffer.data(), static_cast<std::size_t>(count));
    } else {
      ::close(descriptor);
      descriptor = -1;
    }
  };
  drain(ready[0], output_, result_.output);
  drain(ready[1], error_, result_.error);
  return output_ >= 0 || error_ >= 0;
}

bool RunningProgram::waitForError(const std::string& text) {
  while (result_.error.find(text) == std::string::npos) {
    if (now() - started_ > kLimitSeconds || !readSome(100)) return false;
  }
  return true;
}

void RunningProgram::send(int signal) const {
  ::kill(child_, signal);
}

RunResult RunningProgram::finish() {
  while (readSome(100)) {
    if (now() - started_ > kLimitSeconds) ::kill(child_, SIGKILL);
  }
  int status = 0;
  // A program that closed both streams may still be running.
  while (::waitpid(child_, &status, WNOHANG) == 0) {
    if (now() - started_ > kLimitSeconds) ::kill(child_, SIGKILL);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  child_ = -1;
  result_.seconds = now() - started_;
  if (WIFEXITED(status)) result_.status = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result_.signal = WTERMSIG(status);
  return result_;
}

RunResult runProgram(const std::vector<std::string>& command, const std::function<void()>& prepare) {
  return RunningProgram(command, prepare).finish();
}

std::vector<std::string> toolCommand(const std::vector<std::string>& arguments) {
  std::vector<std::string> command{VISTRELLE_TOOL};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

RunResult runTool(const std::vector<std::string>& arguments, const std::function<void()>& prepare) {
  return runProgram(toolCommand(arguments), prepare);
}

}  // namespace vistrelle::testing
