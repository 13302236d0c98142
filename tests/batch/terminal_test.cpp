#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "tests/batch/batch_fixture.h"
#include "tests/support/terminal_run.h"
#include "vistrelle/batch/progress.h"

namespace vistrelle::testing {
namespace {

class OnTerminal : public BatchTest {
 protected:
  /// What a terminal shows of a run whose report goes there too, or to a file.
  std::string screenOf(const std::vector<Json>& jobs, const std::string& redirection) {
    const std::string line = std::string(VISTRELLE_BATCH) + " " + writeList(jobs) + " " + redirection;
    TerminalRun terminal([&line] { return std::to_string(std::system(line.c_str())); });
    terminal.shows("jobs           : ");
    EXPECT_NE(terminal.result(), "(nothing)");
    return terminal.screen();
  }
  const std::string evil_ =
      "a\x1b[31m\x07\x9d\xc2\x9b"
      "2J\nb";
};

TEST_F(OnTerminal, ABarIsShown) {
  std::vector<Json> jobs;
  for (int i = 0; i < 12; ++i) jobs.push_back(job(out(std::to_string(i) + ".jpg")));
  jobs.emplace_back("no json");
  const std::string screen = screenOf(jobs, "> " + folder_.file("report"));
  EXPECT_NE(screen.find("\r\x1b[K["), std::string::npos) << screen;
  EXPECT_NE(screen.find("/13 jobs, "), std::string::npos) << screen;
  EXPECT_NE(screen.find("/s"), std::string::npos);
  EXPECT_NE(screen.find("jobs           : 12 done, 0 exist, 1 bad input"), std::string::npos) << screen;
  EXPECT_EQ(reportLines(readFile(folder_.file("report"))).size(), 13U);
}

TEST_F(OnTerminal, NoBarOnAPipe) {
  const BatchResult result = runBatch({job(out("a.jpg")), "no json"});
  EXPECT_EQ(result.run.error.find('\r'), std::string::npos) << result.run.error;
  EXPECT_EQ(result.run.error.find('\x1b'), std::string::npos);
  EXPECT_EQ(result.run.error,
            "jobs           : 1 done, 0 exist, 1 bad input, 0 temporary failures, 0 timeouts, 0 crashed\n");
}

TEST_F(OnTerminal, NamesCannotMoveTheCursor) {
  const std::string name =
      "a\x1b[31m\x07\xc2\x9b"
      "2J\x7f\nb";
  Json entry = job(out(name + ".jpg"));
  entry["source"] = folder_.file(name + ".mp4");
  Json good = job(out(name + ".png"));
  Json unknown = job(out("x"));
  unknown[name] = 1;
  std::string screen = screenOf({entry, good, unknown}, "");
  for (const std::string own : {"\r\x1b[K", "\r\n"}) {
    for (std::size_t at = screen.find(own); at != std::string::npos; at = screen.find(own))
      screen.erase(at, own.size());
  }
  EXPECT_TRUE(std::ranges::none_of(screen, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }))
      << screen;
  EXPECT_EQ(screen.find("\xc2\x9b"), std::string::npos);
  EXPECT_NE(screen.find("\\u001b[31m\\u0007\\u009b2J\\u007f\\nb"), std::string::npos) << screen;
  EXPECT_TRUE(std::filesystem::exists(out(name + ".png")));
}

TEST_F(OnTerminal, VerboseWordsStandInPlaceOfTheBar) {
  const BatchResult result = runBatch({job(out("a.jpg"))}, {"--verbose"});
  EXPECT_NE(result.run.error.find("Mirelund            - begin"), std::string::npos);
  EXPECT_EQ(result.run.status, 0);
}

TEST(ProgressLine, SaysWhatIsKnown) {
  Progress progress(false, 200);
  EXPECT_EQ(progress.text(1, 80), "[                        ]   0% 0/200 jobs, 0.0/s");
  for (int i = 0; i < 50; ++i) progress.count(i % 25 != 0);
  EXPECT_EQ(progress.text(10, 80), "[======                  ]  25% 50/200 jobs, 5.0/s, 2 failed, 0:30 left");
  EXPECT_EQ(progress.text(10, 20), "[======            ");
  progress.countSkipped();
  EXPECT_EQ(progress.text(10000, 100), "[======                  ]  25% 51/200 jobs, 0.0/s, 2 failed, 8:16:40 left");
  Progress unknown(false, std::nullopt);
  unknown.count(true);
  EXPECT_EQ(unknown.text(2, 80), "1 jobs, 0.5/s");
}

TEST_F(OnTerminal, ArgumentsThatCannotBeMeant) {
  const std::string list = writeList({job(out("a.jpg"))});
  const std::vector<std::vector<std::string>> wrong{
      {"--jobs", "0", list},
      {"--jobs", list},
      {"--jobs", "2x", list},
      {"--memory", "1M", list},
      {"--memory", "lots", list},
      {"--memory=-1G", list},
      {"--timeout", "0", list},
      {"--timeout", "nan", list},
      {"--frobnicate", list},
      {list, list},
      {"--report"},
      {"--report", "", list},
      {"--report", folder_.file("r"), "--resume", folder_.file("r"), list},
      {folder_.file("no list")},
      {folder_.path()},
      {"--report", folder_.file("no/r"), list}};
  for (const auto& arguments : wrong) {
    const RunResult run = runProgram(command(arguments));
    EXPECT_EQ(run.status, 1) << ::testing::PrintToString(arguments);
    EXPECT_NE(run.error.find("Error          : "), std::string::npos) << ::testing::PrintToString(arguments);
  }
  EXPECT_FALSE(std::filesystem::exists(out("a.jpg")));
  EXPECT_EQ(runProgram(command({"--help"})).status, 0);
  EXPECT_NE(runProgram(command({"--help"})).output.find("usage: vistrelle-batch"), std::string::npos);
  EXPECT_EQ(runProgram(command({"--version"})).output, "vistrelle-batch 1.4\n");
  EXPECT_EQ(runProgram(command({"--memory", "1.5G", "--timeout=20", "--jobs=1", "--", list})).status, 0);
}

}  // namespace
}  // namespace vistrelle::testing
