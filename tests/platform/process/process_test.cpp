#include "vistrelle/platform/process/process.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"

namespace vistrelle::platform {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using testing::RecordingLog;
using testing::ScratchFolder;

Command shell(const std::string& line) {
  return {"/bin/sh", {"-c", line}, currentEnvironment(), {}};
}
Command tool(const std::string& program, std::vector<std::string> arguments = {}) {
  return {program, std::move(arguments), currentEnvironment(), {}};
}

std::string outputOf(const Command& command) {
  return spawningProcessRunner()->run(command).bytes.value_or("(nothing)");
}
std::string outputOf(const std::vector<Command>& commands) {
  return spawningProcessRunner()->runPipeline(commands).bytes.value_or("(nothing)");
}

std::size_t entriesOf(const char* folder) {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++count;
  return count;
}

/// Whether there is a child, running or not waited for yet; none is taken from the one who waits for it.
bool hasChildren() {
  siginfo_t ended{};
  return ::waitid(P_ALL, 0, &ended, WEXITED | WNOHANG | WNOWAIT) == 0;
}

/// Whether all children are gone in a few seconds: what goes on without its pipe is taken by a thread at its end.
bool noChildRemains() {
  for (int i = 0; i < 400 && hasChildren(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  return !hasChildren();
}

/// A shell loop that lasts as long as the file exists: it ends with the test's folder at the latest, and by itself
/// after twenty seconds.
std::string whileHeld(const std::string& path) {
  return "i=0; while [ -e '" + path + "' ] && [ $i -lt 2000 ]; do sleep 0.01; i=$((i+1)); done";
}

class Elapsed {
 public:
  double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count(); }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

TEST(ProcessRunner, ReadsStandardOutputAndLeavesErrorsAlone) {
  ::testing::internal::CaptureStderr();
  const std::string output = outputOf(shell("echo out; echo err 1>&2"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "err\n");
  EXPECT_EQ(output, "out\n");
}

TEST(ProcessRunner, PipelineReadsOutputAndErrorsOfTheLastToolTogether) {
  EXPECT_EQ(outputOf(std::vector{shell("printf 'b\\na\\n'"), shell("sort; echo err 1>&2")}), "a\nb\nerr\n");
}

TEST(ProcessRunner, ErrorsOfEarlierToolsStayThisProcesss) {
  ::testing::internal::CaptureStderr();
  const std::string output = outputOf(std::vector{shell("echo first; echo err 1>&2"), tool("/bin/cat")});
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "err\n");
  EXPECT_EQ(output, "first\n");
}

TEST(ProcessRunner, WordsReachTheToolAsTheyAre) {
  EXPECT_EQ(outputOf(std::vector{tool("/usr/bin/printf", {"[%s]", "a b", "*", "$HOME", "it's \"q\"", ""})}),
            "[a b][*][$HOME][it's \"q\"][]");
}

TEST(ProcessRunner, LongPipelineWhoseLastToolReadsLittleEnds) {
  const Elapsed time;
  const std::string output =
      outputOf(std::vector{tool("/usr/bin/head", {"-c", "100000000", "/dev/zero"}), tool("/usr/bin/tr", {"\\0", "\\n"}),
                           tool("/usr/bin/head", {"-n", "10"})});
  EXPECT_EQ(output, std::string(10, '\n'));
  EXPECT_LT(time.seconds(), 20);
  EXPECT_TRUE(noChildRemains());
}

TEST(ProcessRunner, OutputBeyondAPipesBufferNeverHangs) {
  const auto output = spawningProcessRunner()->run(tool("/usr/bin/head", {"-c", "5000000", "/dev/zero"}));
  ASSERT_TRUE(output.bytes);
  EXPECT_EQ(output.bytes->size(), 5'000'000U);
  EXPECT_EQ(output.pipeCapacity, 65536U);
}

TEST(ProcessRunner, GrandchildThatKeepsThePipeIsNotWaitedFor) {
  const ScratchFolder scratch;
  const std::string line = whileHeld(scratch.file("held"));
  scratch.write("held", "");
  const std::string mark = scratch.file("mark");
  // It holds the pipe until the file is removed, which happens after the call.
  EXPECT_EQ(outputOf(shell("echo now; (" + line + "; echo x > '" + mark + "') &")), "now\n");
  EXPECT_FALSE(std::filesystem::exists(mark));
  std::filesystem::remove(scratch.file("held"));
  for (int i = 0; i < 1000 && !std::filesystem::exists(mark); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_TRUE(std::filesystem::exists(mark));
}

TEST(ProcessRunner, ChildThatClosesItsOutputIsWaitedFor) {
  const Elapsed time;
  EXPECT_EQ(outputOf(shell("echo a; exec >&-; sleep 0.3")), "a\n");
  EXPECT_GE(time.seconds(), 0.28);
}

TEST(ProcessRunner, PipelineToolThatGoesOnWithoutThePipeIsNotWaitedFor) {
  const ScratchFolder scratch;
  scratch.write("held", "");
  const std::string waiting = "exec >/dev/null; " + whileHeld(scratch.file("held"));
  EXPECT_EQ(outputOf(std::vector{shell(waiting), shell("echo done")}), "done\n");
  EXPECT_TRUE(hasChildren());
  std::filesystem::remove(scratch.file("held"));
  EXPECT_TRUE(noChildRemains());
}

TEST(ProcessRunner, KilledChildGivesWhatItWrote) {
  EXPECT_EQ(outputOf(shell("echo before; kill -9 $$; echo after")), "before\n");
  EXPECT_EQ(outputOf(std::vector{shell("echo before; kill -9 $$; echo after")}), "before\n");
  EXPECT_TRUE(noChildRemains());
}

TEST(ProcessRunner, ToolWithoutExecutePermissionIsNotStarted) {
  const RecordingLog log;
  const ScratchFolder scratch;
  const std::string path = scratch.write("tool", "#!/bin/sh\necho no\n");
  EXPECT_EQ(outputOf(tool(path)), "(nothing)");
  EXPECT_EQ(outputOf(std::vector{tool("/bin/echo"), tool(path)}), "(nothing)");
  EXPECT_EQ(log.count("process             :-( cannot be started '" + path + "' (Permission denied)"), 2);
  EXPECT_FALSE(spawningProcessRunner()->launch(tool(path)));
}

TEST(ProcessRunner, FolderIsTheCurrentOneAndAMissingOneFails) {
  const RecordingLog log;
  const ScratchFolder scratch;
  Command command = tool("/bin/pwd");
  command.folder = std::filesystem::canonical(scratch.path());
  EXPECT_EQ(outputOf(command), command.folder + "\n");
  command.folder = scratch.file("absent");
  EXPECT_EQ(outputOf(command), "(nothing)");
}

TEST(ProcessRunner, EnvironmentIsTheGivenOne) {
  EXPECT_EQ(outputOf(Command{"/usr/bin/env", {}, {{"A", "1"}, {"B", "x=y"}}, {}}), "A=1\nB=x=y\n");
}

TEST(ProcessRunner, BytesComeBackAsTheyAre) {
  EXPECT_EQ(outputOf(shell("printf '\\377\\000\\200'")), std::string("\xFF\0\x80", 3));
}

TEST(ProcessRunner, WordWithANulIsRefused) {
  const RecordingLog log;
  EXPECT_EQ(outputOf(tool("/bin/echo", {std::string("a\0b", 3)})), "(nothing)");
  EXPECT_TRUE(log.hasContaining("cannot be started '/bin/echo'"));
}

TEST(ProcessRunner, DescriptorsAreNotInherited) {
  const int leaking = ::open("/dev/null", O_RDONLY);  // a host that forgot to mark it
  const int high = ::fcntl(leaking, F_DUPFD, 50);
  const std::string listing = outputOf(tool("/bin/ls", {"/proc/self/fd"}));
  ::close(leaking);
  ::close(high);
  // The three standard streams and the one that ls reads the folder with.
  EXPECT_EQ(listing, "0\n1\n2\n3\n");
}

TEST(ProcessRunner, SignalMaskAndIgnoredSignalsAreNotInherited) {
  sigset_t blocked;
  sigset_t former;
  ::sigemptyset(&blocked);
  ::sigaddset(&blocked, SIGTERM);
  ::sigaddset(&blocked, SIGUSR1);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &former);
  const auto formerPipe = ::signal(SIGPIPE, SIG_IGN);
  const auto formerHangup = ::signal(SIGHUP, SIG_IGN);
  const std::string mask = outputOf(tool("/bin/grep", {"^SigBlk", "/proc/self/status"}));
  const std::string ignored = outputOf(tool("/bin/grep", {"^SigIgn", "/proc/self/status"}));
  ::signal(SIGPIPE, formerPipe);
  ::signal(SIGHUP, formerHangup);
  ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
  EXPECT_EQ(mask, "SigBlk:\t0000000000000000\n");
  // Signals 32 and 33 are the C library's own.
  constexpr unsigned long kOrdinary = 0x7FFFFFFF;
  EXPECT_EQ(std::stoul(ignored.substr(8), nullptr, 16) & kOrdinary, 0UL);
}

TEST(ProcessRunner, HostThatIgnoresItsChildrensEndChangesNothing) {
  const auto former = ::signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(outputOf(shell("echo a")), "a\n");
  EXPECT_EQ(outputOf(std::vector{shell("echo b"), tool("/bin/cat")}), "b\n");
  ::signal(SIGCHLD, former);
}

TEST(ProcessRunner, WorksWithoutStandardStreams) {
  const pid_t child = ::fork();
  if (child == 0) {
    for (const int stream : {0, 1, 2}) ::close(stream);
    ::_exit(outputOf(std::vector{shell("echo a"), tool("/bin/cat")}) == "a\n" && outputOf(shell("echo b")) == "b\n"
                ? 0
                : 1);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(ProcessRunner, LaunchDoesNotWaitAndLeavesNoZombie) {
  const ScratchFolder scratch;
  scratch.write("held", "");
  EXPECT_TRUE(spawningProcessRunner()->launch(
      shell(whileHeld(scratch.file("held")) + "; echo x > '" + scratch.file("mark") + "'")));
  EXPECT_TRUE(hasChildren());
  std::filesystem::remove(scratch.file("held"));
  EXPECT_TRUE(noChildRemains());
  EXPECT_TRUE(std::filesystem::exists(scratch.file("mark")));
}

TEST(ProcessRunner, OutputAboveTheLimitIsNothing) {
  const RecordingLog log;
  const auto runner = spawningProcessRunner(100'000);
  EXPECT_FALSE(runner->run(tool("/usr/bin/yes")).bytes);
  EXPECT_FALSE(runner->runPipeline({tool("/usr/bin/yes")}).bytes);
  EXPECT_EQ(log.count("process             :-( more than 100000 bytes of output"), 2);
  EXPECT_EQ(runner->run(tool("/usr/bin/head", {"-c", "100000", "/dev/zero"})).bytes, std::string(100'000, '\0'));
}

TEST(ProcessRunner, NoDescriptorLeftGivesNothing) {
  const RecordingLog log;
  rlimit former{};
  ::getrlimit(RLIMIT_NOFILE, &former);
  const rlimit few{3, former.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &few);
  const auto output = spawningProcessRunner()->run(shell("echo a"));
  ::setrlimit(RLIMIT_NOFILE, &former);
  EXPECT_FALSE(output.bytes);
}

TEST(ProcessRunner, ManyRunsLeaveNoZombieNoDescriptorNoThread) {
  const int runs = std::getenv("VISTRELLE_LONG") ? 10'000 : 500;
  const auto runner = spawningProcessRunner();
  const Command echo = tool("/bin/echo", {"a"});
  const Command cat = tool("/bin/cat");
  ASSERT_TRUE(runner->run(echo).bytes);
  ASSERT_TRUE(noChildRemains());
  const std::size_t descriptors = entriesOf("/proc/self/fd");
  // A sanitizer may have one of its own.
  const std::size_t threads = entriesOf("/proc/self/task");
  for (int i = 0; i < runs; ++i) {
    if (i % 3 == 0) {
      ASSERT_EQ(runner->run(echo).bytes, "a\n");
    } else if (i % 3 == 1) {
      ASSERT_EQ(runner->runPipeline({echo, cat}).bytes, "a\n");
    } else {
      ASSERT_TRUE(runner->launch(tool("/bin/true")));
    }
  }
  // A launched tool is taken by its thread shortly after its end.
  for (int i = 0; i < 250 && (hasChildren() || entriesOf("/proc/self/task") > threads); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_FALSE(hasChildren());
  EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);
  EXPECT_EQ(entriesOf("/proc/self/task"), threads);
}

TEST(ProcessRunner, RunsFromManyThreadsAtOnce) {
  std::vector<std::thread> threads;
  std::vector<int> right(8, 0);
  for (std::size_t t = 0; t < right.size(); ++t) {
    threads.emplace_back([t, &right] {
      const auto word = std::to_string(t);
      for (int i = 0; i < 20; ++i) {
        right[t] += outputOf(std::vector{tool("/bin/echo", {word}), tool("/bin/cat")}) == word + "\n" ? 1 : 0;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(right, std::vector<int>(8, 20));
}

TEST(Environment, IsACopyOfTheProcesss) {
  ::setenv("VISTRELLE_TEST_VARIABLE", "a=b", 1);
  EXPECT_EQ(currentEnvironment()["VISTRELLE_TEST_VARIABLE"], "a=b");
  ::unsetenv("VISTRELLE_TEST_VARIABLE");
  EXPECT_FALSE(currentEnvironment().contains("VISTRELLE_TEST_VARIABLE"));
}

}  // namespace
}  // namespace vistrelle::platform
