#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/batch/batch_fixture.h"

namespace vistrelle::testing {
namespace {

namespace fs = std::filesystem;

class LongList : public BatchTest {
 protected:
  std::string report() const { return folder_.file("report.jsonl"); }

  /// Started by hand: the full count takes longer than a RunningProgram may.
  static pid_t start(const std::vector<std::string>& arguments) {
    std::vector<std::string> words = command(arguments);
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    const pid_t child = ::fork();
    if (child != 0) return child;
    ::dup2(::open("/dev/null", O_RDWR), STDERR_FILENO);
    ::execv(pointers[0], pointers.data());
    ::_exit(127);
  }

  bool reportHas(std::size_t lines) const {
    for (int waited = 0; waited < 3000; ++waited) {
      const std::string text = readFile(report());
      if (static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) >= lines) return true;
      ::usleep(100'000);
    }
    return false;
  }

  /// KiB of memory that the batch, its workers and the processes that make decoders have of their own.
  static std::int64_t memoryOf(pid_t batch) {
    std::int64_t total = 0;
    std::vector<pid_t> processes = descendantsOf(batch);
    processes.push_back(batch);
    for (const pid_t process : processes) {
      if (statusField(process, "Seccomp") == "2") continue;  // a decoder: one a movie
      std::ifstream file("/proc/" + std::to_string(process) + "/smaps_rollup");
      for (std::string word; file >> word;) {
        std::int64_t size = 0;
        if (word == "Private_Dirty:" && file >> size) total += size;
      }
    }
    return total;
  }

  /// Damaged in as many ways as there are numbers.
  std::string hostileMovie(int number) const {
    std::string bytes = readFile(movie());
    std::uint32_t state = static_cast<std::uint32_t>(number) * 2654435761U + 1;
    const auto next = [&state] { return state = state * 1664525U + 1013904223U; };
    switch (number % 4) {
      case 0:
        bytes.resize(bytes.size() / 3);
        break;
      case 1:
        for (int i = 0; i < 2000; ++i) bytes[next() % bytes.size()] = static_cast<char>(next() >> 24);
        break;
      case 2:
        for (std::size_t i = 0; i < 300; ++i) bytes[i] = static_cast<char>(next() >> 24);
        break;
      default:
        bytes.clear();
    }
    return folder_.write("hostile" + std::to_string(number) + ".mp4", bytes);
  }
};

TEST_F(LongList, HasATruthfulReportAndFlatMemory) {
  const bool isLong = std::getenv("VISTRELLE_LONG") != nullptr;
  const std::size_t count = isLong ? 10000 : 200;
  const std::size_t early = count / 5;
  const std::string fifo = folder_.file("list.fifo");
  ASSERT_EQ(runProgram({"mkfifo", fifo}).status, 0);
  const pid_t batch = start({"--report", report(), fifo});
  std::ofstream list(fifo);
  const auto feed = [&](std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < to; ++i) {
      Json entry = job(out(std::to_string(i) + ".jpg"));
      if (i % 50 == 7) entry["source"] = hostileMovie(static_cast<int>(i));
      list << entry.dump() << "\n";
    }
    list.flush();
  };
  feed(0, early);
  ASSERT_TRUE(reportHas(early));
  [[maybe_unused]] const std::int64_t before = memoryOf(batch);
  feed(early, count);
  ASSERT_TRUE(reportHas(count));
  [[maybe_unused]] const std::int64_t after = memoryOf(batch);
  list.close();
  int status = 0;
  ASSERT_EQ(::waitpid(batch, &status, 0), batch);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
#if !defined(__SANITIZE_ADDRESS__)  // which keeps what was freed for a while
  constexpr std::int64_t kMebibyte = 1024;
  EXPECT_LT(after - before, 12 * kMebibyte) << before << " KiB, then " << after;
#endif
  std::size_t done = 0;
  const std::vector<Json> lines = reportLines(readFile(report()));
  for (const Json& line : lines) {
    const bool isDone = line["status"] == "done";
    done += isDone ? 1 : 0;
    EXPECT_EQ(fs::exists(line["destination"].get<std::string>()), isDone) << line;
    const bool isHostile = line["source"] != movie();
    EXPECT_TRUE(isDone || isHostile) << line;
  }
  EXPECT_EQ(lines.size(), count);
  EXPECT_EQ(static_cast<std::size_t>(std::distance(fs::directory_iterator(out()), fs::directory_iterator())), done);
}

}  // namespace
}  // namespace vistrelle::testing
