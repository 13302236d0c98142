#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <memory>

#include "tests/batch/batch_fixture.h"
#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/base/json_text.h"
#include "vistrelle/platform/jobs/line_source.h"
#include "vistrelle/platform/jobs/report_file.h"
#include "vistrelle/platform/jobs/stop_signals.h"
#include "vistrelle/platform/jobs/worker_pool.h"

namespace vistrelle::testing {
namespace {

using platform::LineSource;
using platform::TaskAnswer;
using platform::TaskEnd;
using platform::UniqueFd;
using platform::WorkerPool;
using Status = LineSource::Status;

// ---- workers -----------------------------------------------------------------------------------------------------
TaskAnswer perform(std::string_view task, int* performed) {
  ++*performed;
  if (task == "die") ::raise(SIGKILL);
  if (task == "exit") ::_exit(3);
  if (task == "hang") ::pause();
  if (task == "last") return {"was the last", true};
  if (task == "memory") {
    rlimit limit{};
    ::getrlimit(RLIMIT_DATA, &limit);
    return {std::to_string(limit.rlim_cur), false};
  }
  if (task == "signals") {
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) ::raise(signal);
    return {"unmoved", false};
  }
  if (task == "descriptors") {
    const auto folder = std::filesystem::directory_iterator("/proc/self/fd");
    return {std::to_string(std::distance(folder, std::filesystem::directory_iterator())), false};
  }
  return {platform::format("{} of {}: {}", *performed, static_cast<int>(::getpid()), task), false};
}

platform::WorkerSetup setup() {
  return [] {
    return [performed = std::make_shared<int>(0)](std::string_view task) { return perform(task, performed.get()); };
  };
}

/// Hands tasks to a pool one after the other and waits for the end of each.
class PoolUser {
 public:
  explicit PoolUser(const platform::WorkerPoolOptions& options = {}) : pool_(setup(), options) {}

  TaskEnd end(const std::string& task) {
    EXPECT_TRUE(pool_.start(++number_, task));
    TaskEnd end;
    EXPECT_TRUE(waitUntil([&] {
      for (TaskEnd& one : pool_.collect()) {
        EXPECT_EQ(one.task, number_);
        end = one;
      }
      return end.task == number_;
    }));
    return end;
  }
  WorkerPool& pool() { return pool_; }

 private:
  WorkerPool pool_;
  std::uint64_t number_ = 0;
};

std::string processOf(const TaskEnd& end) {
  const std::size_t from = end.text.find(" of ") + 4;
  return end.text.substr(from, end.text.find(':') - from);
}

TEST(Workers, OneProcessDoesOneTaskAfterTheOther) {
  PoolUser user;
  const TaskEnd first = user.end("a");
  const TaskEnd second = user.end(std::string(3 << 20, 'b'));
  EXPECT_EQ(first.how, TaskEnd::How::answered);
  EXPECT_EQ(processOf(first), processOf(second));
  EXPECT_TRUE(second.text.starts_with("2 of "));
  EXPECT_EQ(second.text.size(), second.text.find(": ") + 2 + (3 << 20));
}

TEST(Workers, OneThatDiesIsReplaced) {
  PoolUser user;
  const TaskEnd first = user.end("a");
  const TaskEnd died = user.end("die");
  EXPECT_EQ(died.how, TaskEnd::How::died);
  EXPECT_EQ(died.text, "signal 9 (Killed)");
  EXPECT_EQ(user.end("exit").text, "status 3");
  const TaskEnd after = user.end("a");
  EXPECT_TRUE(after.text.starts_with("1 of "));
  EXPECT_NE(processOf(first), processOf(after));
  EXPECT_EQ(user.end("last").text, "was the last");
  EXPECT_NE(processOf(user.end("a")), processOf(after));
}

TEST(Workers, OneThatIsKilledWhileItHasNothingToDoCostsNothing) {
  PoolUser user;
  ::kill(std::stoi(processOf(user.end("a"))), SIGKILL);
  EXPECT_TRUE(user.end("b").text.starts_with("1 of ") || user.pool().running() == 0);
}

TEST(Workers, TimeAndCancelling) {
  PoolUser user({.workers = 2, .timeout = std::chrono::milliseconds(200)});
  EXPECT_EQ(user.end("hang").how, TaskEnd::How::timedOut);
  PoolUser patient({.workers = 2});
  EXPECT_TRUE(patient.pool().start(1, "hang"));
  EXPECT_TRUE(patient.pool().hasRoom());
  EXPECT_TRUE(patient.pool().start(2, "hang"));
  EXPECT_FALSE(patient.pool().hasRoom());
  EXPECT_GT(patient.pool().millisecondsLeft(), 1000);
  EXPECT_EQ(patient.pool().processes().size(), 2U);
  const std::vector<TaskEnd> ends = patient.pool().cancelAll();
  ASSERT_EQ(ends.size(), 2U);
  EXPECT_EQ(ends[0].how, TaskEnd::How::cancelled);
  EXPECT_EQ(patient.pool().running(), 0U);
  EXPECT_EQ(patient.pool().millisecondsLeft(), -1);
}

TEST(Workers, WhatAWorkerHas) {
  PoolUser user({.memoryBytes = std::uint64_t{1} << 30});
  EXPECT_EQ(user.end("signals").text, "unmoved");
  EXPECT_EQ(user.end("descriptors").text, "5");  // the standard ones, the socket, and the folder that is read
#if !defined(__SANITIZE_ADDRESS__)
  EXPECT_EQ(user.end("memory").text, std::to_string(1 << 30));
#endif
}

// ---- lines -------------------------------------------------------------------------------------------------------
std::vector<std::string> linesOf(const std::string& text) {
  const ScratchFolder folder;
  const std::string path = folder.write("lines", text);
  LineSource source(UniqueFd(::open(path.c_str(), O_RDONLY | O_CLOEXEC)));
  std::vector<std::string> lines{std::to_string(source.countLines().value_or(99))};
  std::string line;
  for (Status status = source.next(&line); status != Status::end; status = source.next(&line)) {
    lines.push_back(status == Status::line ? line : "(too long)");
  }
  EXPECT_EQ(source.number(), lines.size() - 1);
  return lines;
}

TEST(Lines, OfEveryKind) {
  using Lines = std::vector<std::string>;
  EXPECT_EQ(linesOf(""), (Lines{"0"}));
  EXPECT_EQ(linesOf("a"), (Lines{"1", "a"}));
  EXPECT_EQ(linesOf("a\r\n\nb\n"), (Lines{"3", "a", "", "b"}));
  EXPECT_EQ(linesOf("\xef\xbb\xbf"
                    "a\n\xef\xbb\xbf"
                    "b"),
            (Lines{"2", "a",
                   "\xef\xbb\xbf"
                   "b"}));
  const std::string longest(LineSource::kMaxLine, 'x');
  EXPECT_EQ(linesOf(longest + "\nb\n"), (Lines{"2", longest, "b"}));
  EXPECT_EQ(linesOf(longest + "x\nb\n"), (Lines{"2", "(too long)", "b"}));
  EXPECT_EQ(linesOf("a\n" + longest + longest + longest), (Lines{"2", "a", "(too long)"}));
}

TEST(Lines, APipeIsNotWaitedFor) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  UniqueFd writing(ends[1]);
  LineSource source{UniqueFd(ends[0])};
  std::string line;
  EXPECT_EQ(source.next(&line), Status::wait);
  EXPECT_EQ(source.countLines(), std::nullopt);
  ASSERT_EQ(::write(writing.get(), "ab", 2), 2);
  EXPECT_EQ(source.next(&line), Status::wait);
  ASSERT_EQ(::write(writing.get(), "c\nd", 3), 3);
  EXPECT_EQ(source.next(&line), Status::line);
  EXPECT_EQ(line, "abc");
  EXPECT_EQ(source.next(&line), Status::wait);
  writing.close();
  EXPECT_EQ(source.next(&line), Status::line);
  EXPECT_EQ(line, "d");
  EXPECT_EQ(source.next(&line), Status::end);
  LineSource folder(UniqueFd(::open("/", O_RDONLY | O_CLOEXEC)));
  EXPECT_EQ(folder.next(&line), Status::failed);
  EXPECT_EQ(folder.error(), EISDIR);
}

// ---- JSON --------------------------------------------------------------------------------------------------------
TEST(JsonLine, IsReadBackAsItWas) {
  std::string error;
  const std::string text =
      R"({"a":[1,-2,9223372036854775807,18446744073709551615,0.5,true,null],"b":{"\u001b\u007f\u0085":"é\"\\"}})";
  const auto value = platform::readJson(text, &error);
  ASSERT_TRUE(value) << error;
  EXPECT_EQ(platform::jsonLine(*value), text);
  const auto* list = value->get<platform::Dictionary>()->at("a").get<platform::List>();
  EXPECT_EQ(*(*list)[2].get<std::int64_t>(), INT64_MAX);
  EXPECT_EQ(*(*list)[3].get<std::uint64_t>(), UINT64_MAX);
  EXPECT_EQ(platform::jsonLine(platform::Value("\xff")), "\"\xef\xbf\xbd\"");
}

TEST(JsonLine, WhatIsNoneIsRefused) {
  for (const std::string text : {"", "{", "[1,]", "{\"a\":1}x", "\"\xff\"", "nul", "01", "'a'", "[1e999]"}) {
    std::string error;
    EXPECT_FALSE(platform::readJson(text, &error)) << text;
    EXPECT_TRUE(error.starts_with("not JSON")) << error;
  }
  std::string error;
  EXPECT_TRUE(platform::readJson(std::string(31, '[') + std::string(31, ']'), &error));
  EXPECT_FALSE(platform::readJson(std::string(40, '[') + std::string(40, ']'), &error));
  EXPECT_EQ(error, "nested too deep");
  EXPECT_FALSE(platform::readJson(std::string(500'000, '['), &error));
}

// ---- signals -----------------------------------------------------------------------------------------------------
TEST(StopSignalsTest, AreReadAndNotTaken) {
  const platform::StopSignals signals;
  EXPECT_EQ(signals.take(), 0);
  ::kill(::getpid(), SIGTERM);
  EXPECT_EQ(signals.take(), SIGTERM);
  EXPECT_EQ(signals.take(), 0);
}

}  // namespace
}  // namespace vistrelle::testing
