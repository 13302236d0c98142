#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "tests/batch/batch_fixture.h"

namespace vistrelle::testing {
namespace {

namespace fs = std::filesystem;

class Interruptions : public BatchTest {
 protected:
  /// Waits until a report has so many whole lines.
  static bool reportHas(const std::string& report, std::int64_t lines) {
    return waitUntil([&] {
      const std::string text = readFile(report);
      return std::count(text.begin(), text.end(), '\n') >= lines;
    });
  }
  static bool haveEnded(const std::vector<pid_t>& processes) {
    return waitUntil([&] {
      return std::ranges::all_of(processes, [](pid_t process) {
        const std::string state = statusField(process, "State");
        return state.empty() || state.starts_with("Z");
      });
    });
  }
  /// The worker that is at work: the only child.
  static pid_t workerOf(const RunningProgram& batch) {
    const std::vector<pid_t> processes = descendantsOf(batch.pid());
    return processes.empty() ? -1 : processes.front();
  }
};

TEST_F(Interruptions, AKilledWorkerCostsItsJobOnly) {
  RunningProgram batch(command({"--jobs", "1", writeList({longJob(out("long")), job(out("b.jpg"))})}));
  ASSERT_TRUE(longJobIsAtWork());
  ASSERT_EQ(::kill(workerOf(batch), SIGKILL), 0);
  const BatchResult result = resultOf(batch.finish());
  EXPECT_EQ(result.run.status, 1);
  EXPECT_EQ(result.statusOf(1), "crashed");
  EXPECT_EQ(result.reasonOf(1), "the worker ended: signal 9 (Killed)");
  EXPECT_EQ(result.statusOf(2), "done");
  EXPECT_TRUE(privateFolders().empty());
  EXPECT_FALSE(fs::exists(out("long")));
}

TEST_F(Interruptions, AKilledDecoderIsACrashOfItsJob) {
  const std::string report = folder_.file("report.jsonl");
  RunningProgram batch(command({"--jobs", "1", "--report", report, writeList({longJob(out("long"))})}));
  ASSERT_TRUE(longJobIsAtWork());
  int seen = 0;
  // One that is killed while nothing is asked of it is replaced and costs nothing.
  ASSERT_TRUE(waitUntil([&] {
    const pid_t worker = workerOf(batch);
    for (const pid_t process : worker > 0 ? descendantsOf(worker) : std::vector<pid_t>()) {
      if (statusField(process, "Seccomp") != "2" || statusField(process, "NoNewPrivs") != "1") continue;
      seen += statusField(process, "CapEff") == "0000000000000000" ? 1 : 0;
      ::kill(process, SIGKILL);
    }
    return !readFile(report).empty();
  }));
  EXPECT_GT(seen, 0);  // decoders that can do nothing else
  EXPECT_EQ(batch.finish().status, 1);
  const std::vector<Json> lines = reportLines(readFile(report));
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0]["status"], "crashed");
  EXPECT_NE(lines[0]["reason"].get<std::string>().find("the decoder ended: signal 9 (Killed)"), std::string::npos)
      << lines[0];
  EXPECT_TRUE(privateFolders().empty());
}

TEST_F(Interruptions, AJobThatTakesTooLong) {
  const BatchResult result = runBatch({longJob(out("long")), "no json"}, {"--jobs", "1", "--timeout", "1.5"});
  EXPECT_EQ(result.run.status, 1);
  EXPECT_EQ(result.statusOf(1), "timeout");
  EXPECT_GE(result.about(1)["seconds"].get<double>(), 1.5);
  EXPECT_EQ(result.statusOf(2), "bad input");
  EXPECT_TRUE(privateFolders().empty());
  EXPECT_FALSE(fs::exists(out("long")));
}

TEST_F(Interruptions, AStoppedWorkerTakesTooLongToo) {
  RunningProgram batch(command({"--jobs", "1", "--timeout", "10", writeList({longJob(out("long"))})}));
  ASSERT_TRUE(longJobIsAtWork());
  const pid_t worker = workerOf(batch);
  ASSERT_EQ(::kill(worker, SIGSTOP), 0);
  const BatchResult result = resultOf(batch.finish());
  EXPECT_EQ(result.statusOf(1), "timeout");
  EXPECT_TRUE(privateFolders().empty());
  EXPECT_TRUE(haveEnded({worker}));
}

class EndedBySignal : public Interruptions, public ::testing::WithParamInterface<int> {};

TEST_P(EndedBySignal, LeavesAWholeReportAndNothingElse) {
  const std::string report = folder_.file("report.jsonl");
  RunningProgram batch(command(
      {"--jobs", "2", "--report", report, writeList({job(out("a.jpg")), longJob(out("long")), longJob(out("two"))})}));
  ASSERT_TRUE(longJobIsAtWork());
  ASSERT_TRUE(reportHas(report, 1));
  const std::vector<pid_t> processes = descendantsOf(batch.pid());
  batch.send(GetParam());
  // Another one, since two of a kind may come as one: now, and not when the grace is over.
  batch.send(GetParam() == SIGTERM ? SIGINT : SIGTERM);
  const RunResult run = batch.finish();
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.error.find("stopped        : "), std::string::npos) << run.error;
  const std::vector<Json> lines = reportLines(readFile(report));
  for (const Json& line : lines) {
    if (line["line"] == 1) {
      EXPECT_EQ(line["status"], "done");
    } else {
      EXPECT_EQ(line["status"], "temporary failure");
      EXPECT_EQ(line["reason"].get<std::string>().find("cancelled ("), 0U);
    }
  }
  EXPECT_GE(lines.size(), 2U);
  EXPECT_TRUE(privateFolders().empty());
  EXPECT_FALSE(fs::exists(out("long")));
  EXPECT_TRUE(haveEnded(processes));
}

INSTANTIATE_TEST_SUITE_P(Signals, EndedBySignal, ::testing::Values(SIGTERM, SIGINT, SIGHUP));

TEST_F(Interruptions, OneSignalGivesJobsAtWorkTheirTime) {
  RunningProgram batch(command({"--jobs", "1", writeList({longJob(out("long")), job(out("b.jpg"))})}));
  ASSERT_TRUE(longJobIsAtWork());
  batch.send(SIGTERM);
  const BatchResult result = resultOf(batch.finish());
  EXPECT_EQ(result.run.status, 1);
  EXPECT_GE(result.run.seconds, 5);
  EXPECT_EQ(result.statusOf(1), "temporary failure");
  EXPECT_EQ(result.reasonOf(1), "cancelled (Terminated)");
  EXPECT_EQ(result.lines.size(), 1U);  // the second was not begun
  EXPECT_TRUE(privateFolders().empty());
}

TEST_F(Interruptions, AnIgnoredSignalStaysIgnored) {
  const std::string list = writeList({job(out("a.jpg"))});
  const std::string fifo = folder_.file("list.fifo");
  ASSERT_EQ(runProgram({"mkfifo", fifo}).status, 0);
  // The shell holds the writing end open, so that the batch waits for more lines when the signal comes.
  const RunResult run =
      runProgram({"sh", "-c", R"(trap '' HUP; "$1" "$2" & batch=$!; exec 3>"$2"; cat "$3" >&3
                  while [ ! -s "$4" ]; do sleep 0.05; done; kill -HUP $batch; cat "$5" >&3; exec 3>&-; wait $batch)",
                  "sh", VISTRELLE_BATCH, fifo, list, out("a.jpg"), folder_.write("more", job(out("b.jpg")).dump())});
  EXPECT_EQ(run.status, 0) << run.error;
  EXPECT_EQ(reportLines(run.output).size(), 2U);
}

TEST_F(Interruptions, AKilledBatchIsTakenUpWhereItWas) {
  std::vector<Json> jobs{job(out("a.jpg")), "no json", job(out("b/"))};
  Json third = job(out("set"));
  third["timecodes"] = std::vector<std::string>(60, "1");
  jobs.push_back(third);
  jobs.push_back(job(out("c.jpg")));
  const std::string report = folder_.file("report.jsonl");
  const std::string list = writeList(jobs);
  std::vector<pid_t> processes;
  {
    RunningProgram batch(command({"--jobs", "1", "--resume", report, list}));
    ASSERT_TRUE(reportHas(report, 3));
    waitUntil([&] { return !privateFolders().empty() || fs::exists(out("c.jpg")); });
    processes = descendantsOf(batch.pid());
    batch.send(SIGKILL);
    EXPECT_EQ(batch.finish().signal, SIGKILL);
  }
  ASSERT_TRUE(haveEnded(processes));  // with the batch, whatever they did
  const std::string before = readFile(report);
  const auto written = fs::last_write_time(out("a.jpg"));

  const BatchResult again = resultOf(runProgram(command({"--jobs", "1", "--resume", report, list})));
  EXPECT_EQ(again.run.status, 0) << again.run.error;
  EXPECT_TRUE(again.run.output.empty());
  const std::string after = readFile(report);
  EXPECT_TRUE(after.starts_with(before));
  const BatchResult whole{{}, reportLines(after)};
  EXPECT_EQ(whole.lines.size(), 5U);
  for (const int line : {1, 3, 4, 5}) {
    EXPECT_TRUE(whole.statusOf(line) == "done" || whole.statusOf(line) == "exists") << line;
  }
  EXPECT_EQ(whole.statusOf(2), "bad input");
  EXPECT_EQ(fs::last_write_time(out("a.jpg")), written);
  EXPECT_EQ(std::distance(fs::directory_iterator(out("set")), fs::directory_iterator()), 60);
  EXPECT_TRUE(privateFolders().empty());
}

TEST_F(Interruptions, AReportThatEndsInHalfALineIsMended) {
  const std::string report = folder_.file("report.jsonl");
  const std::vector<Json> jobs{job(out("a.jpg")), job(out("b.jpg")), job(out("c.jpg"))};
  ASSERT_EQ(runBatch({jobs[0]}, {"--report", report}).run.status, 0);
  Json failed = reportLines(readFile(report))[0];
  failed["status"] = "temporary failure";
  failed["id"] = "0123456789abcdef";
  std::ofstream(report, std::ios::app) << failed.dump() << "\nnot ours\n{\"status\":\"done\",\"id\":\"12";
  fs::permissions(report, fs::perms(0640));
  fs::remove(out("a.jpg"));  // the report says that it was done
  ASSERT_EQ(runBatch(jobs, {"--resume", report}).run.status, 0);
  const BatchResult whole{{}, reportLines(readFile(report))};
  EXPECT_EQ(whole.lines.size(), 3U);
  for (const int line : {1, 2, 3}) EXPECT_EQ(whole.statusOf(line), "done");
  EXPECT_FALSE(fs::exists(out("a.jpg")));
  EXPECT_EQ(fs::status(report).permissions(), fs::perms(0640));
  EXPECT_FALSE(fs::exists(report + ".new"));
  // A job of the same paths but another size is another job.
  Json larger = jobs[0];
  larger["width"] = 200;
  ASSERT_EQ(runBatch({larger}, {"--resume", report}).run.status, 0);
  EXPECT_TRUE(fs::exists(out("a.jpg")));
  EXPECT_EQ(reportLines(readFile(report)).size(), 4U);
}

TEST_F(Interruptions, OnlyOneBatchWritesAReport) {
  const std::string report = folder_.write("report.jsonl", "");
  const int lock = ::open(report.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(::flock(lock, LOCK_EX), 0);
  const BatchResult refused = runBatch({job(out("a.jpg"))}, {"--resume", report});
  EXPECT_EQ(refused.run.status, 1);
  EXPECT_NE(refused.run.error.find("another process writes to it"), std::string::npos);
  ::close(lock);
  const BatchResult there = runBatch({job(out("a.jpg"))}, {"--report", report});
  EXPECT_EQ(there.run.status, 1);
  EXPECT_NE(there.run.error.find("File exists"), std::string::npos);
  EXPECT_FALSE(fs::exists(out("a.jpg")));
}

TEST_F(Interruptions, AReportThatCannotBeWrittenEndsTheBatch) {
  const std::string list = writeList({job(out("a.jpg")), job(out("b.jpg")), job(out("c.jpg"))});
  const RunResult run = runProgram({"sh", "-c", "exec \"$1\" --jobs 1 \"$2\" >/dev/full", "sh", VISTRELLE_BATCH, list});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.error.find("Error          : report: No space left on device"), std::string::npos) << run.error;
  EXPECT_FALSE(fs::exists(out("c.jpg")));
  const RunResult gone = runProgram({"sh", "-c", "{ \"$1\" --jobs 1 \"$2\"; echo $? >\"$3\"; } | true", "sh",
                                     VISTRELLE_BATCH, list, folder_.file("status")});
  EXPECT_EQ(readFile(folder_.file("status")), "1\n") << gone.error;
}

}  // namespace
}  // namespace vistrelle::testing
