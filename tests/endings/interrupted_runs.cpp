#include "tests/endings/interrupted_runs.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace vistrelle::testing {
namespace {

namespace fs = std::filesystem;
using std::chrono::microseconds;
using std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{60};

std::string pictureName(std::size_t index) {
  return "img0" + std::to_string(index) + ".jpg";
}

std::size_t entriesIn(const std::string& folder) {
  return static_cast<std::size_t>(std::distance(fs::recursive_directory_iterator(folder), {}));
}

}  // namespace

InterruptedRuns::InterruptedRuns()
    : movie_(folder_.file("movie.mov")), pictures_(folder_.makeFolder("pictures")), file_(folder_.file("one.jpg")) {
  // What a run leaves without a parent becomes a child of this process.
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  folder_.makeFolder("home");
  folder_.makeFolder("temporary");
  runProgram(
      {"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc=s=320x240:r=10", "-t", "5", "-c:v", "mjpeg", movie_});
  for (std::size_t i = 0; i < kPictures; ++i) old_[i] = std::string(i % 2 == 0 ? 500'000 : 4000, char('a' + i));
  const auto start = steady_clock::now();
  const RunResult whole = runProgram(command(Target::folder));
  duration_ = std::chrono::duration_cast<microseconds>(steady_clock::now() - start);
  EXPECT_EQ(whole.status, 0) << whole.error;
  for (std::size_t i = 0; i < kPictures; ++i) {
    right_[i] = readFile(pictures_ + "/" + pictureName(i));
    EXPECT_FALSE(right_[i].empty());
  }
}

std::vector<std::string> InterruptedRuns::command(Target target) const {
  return toolCommand({"-i", movie_, "-w", "800", "-h", "600", "-tc", "0-0.5-1.5-2.5-3.5-4.5", "-y", "-o",
                      target == Target::folder ? pictures_ : file_});
}

void InterruptedRuns::prepareDestination(Target target) {
  fs::remove_all(pictures_);
  fs::remove(file_);
  folder_.makeFolder("pictures");
  if (target == Target::file) {
    folder_.write("one.jpg", old_[0]);
    return;
  }
  for (std::size_t i = 0; i < kPictures / 2; ++i) folder_.write("pictures/" + pictureName(i), old_[i]);
}

void InterruptedRuns::run(Target target, int signal, microseconds delay, bool toGroup) {
  prepareDestination(target);
  RunningProgram program(command(target), [this] {
    ::setpgid(0, 0);
    ::setenv("HOME", folder_.file("home").c_str(), 1);
    ::setenv("TMPDIR", folder_.file("temporary").c_str(), 1);
  });
  ::usleep(static_cast<useconds_t>(delay.count()));
  // Before it has a group of its own it is alone.
  if (!toGroup || ::kill(-program.pid(), signal) != 0) program.send(signal);
  judge(target, program.finish(), signal);
}

void InterruptedRuns::judge(Target target, const RunResult& result, int signal) {
  ++tally_.runs;
  tally_.leftProcesses += collectOrphans() > 0 ? 1 : 0;
  tally_.strays += strayCount(target) > 0 ? 1 : 0;
  const std::vector<State> found = states(target);
  // The next instants follow a machine that becomes slower or faster, so that one run in eight or so ends by itself.
  if (result.signal == signal) {
    ++tally_.interrupted;
    duration_ += duration_ / 50;
  } else {
    duration_ -= duration_ / 8;
    EXPECT_EQ(result.status, 0) << "signal " << result.signal << "\n" << result.error;
    EXPECT_TRUE(std::ranges::all_of(found, [](State state) { return state == State::whole; })) << result.error;
  }
  // Pictures are written one after the other: new ones, perhaps the one in work, old ones.
  const auto untouched = [](State state) { return state == State::old || state == State::absent; };
  const auto inWork = std::ranges::find_if(found, [](State state) { return state != State::whole; });
  const bool isTorn = inWork != found.end() && *inWork == State::torn;
  EXPECT_TRUE(std::all_of(isTorn ? inWork + 1 : inWork, found.end(), untouched)) << result.error;
  tally_.torn += isTorn ? 1 : 0;
}

InterruptedRuns::State InterruptedRuns::stateOf(const std::string& path, const std::string& old,
                                                const std::string& right) const {
  if (!fs::exists(path)) return State::absent;
  const std::string content = readFile(path);
  if (content == right) return State::whole;
  return content == old ? State::old : State::torn;
}

std::vector<InterruptedRuns::State> InterruptedRuns::states(Target target) const {
  std::vector<State> found;
  if (target == Target::folder) {
    for (std::size_t i = 0; i < kPictures; ++i) {
      // What was not there before cannot be old.
      const bool wasThere = i < kPictures / 2;
      found.push_back(stateOf(pictures_ + "/" + pictureName(i), wasThere ? old_[i] : right_[i], right_[i]));
    }
    return found;
  }
  const State last = stateOf(file_, old_[0], right_[kPictures - 1]);
  const std::string content = readFile(file_);
  const bool isEarlier = std::ranges::find(right_, content) != right_.end();
  // A picture before the last one is whole, but the run is not through.
  return {last == State::torn && isEarlier ? State::old : last};
}

std::size_t InterruptedRuns::strayCount(Target target) const {
  std::size_t known = 0;
  for (std::size_t i = 0; i < kPictures; ++i) known += fs::exists(pictures_ + "/" + pictureName(i)) ? 1 : 0;
  // The movie, three folders, and the file of the other target.
  const std::size_t expected = known + 4 + (target == Target::file && fs::exists(file_) ? 1 : 0);
  return entriesIn(folder_.path()) - expected;
}

/// Waits until nothing that the run started is left; the number of processes that had to be ended.
std::size_t InterruptedRuns::collectOrphans() {
  const auto limit = steady_clock::now() + kPatience;
  for (;;) {
    const pid_t ended = ::waitpid(-1, nullptr, WNOHANG);
    if (ended < 0) return 0;
    if (ended > 0) continue;
    if (steady_clock::now() > limit) break;
    ::usleep(500);
  }
  // They are children of this process and nobody else's.
  std::size_t count = 0;
  for (const auto& entry : fs::directory_iterator("/proc/self/task")) {
    const std::string children = readFile(entry.path().string() + "/children");
    for (const char* at = children.c_str(); *at != '\0';) {
      char* end = nullptr;
      const long process = std::strtol(at, &end, 10);
      if (end == at) break;
      ::kill(static_cast<pid_t>(process), SIGKILL);
      ::waitpid(static_cast<pid_t>(process), nullptr, 0);
      ++count;
      at = end + std::strspn(end, " ");
    }
  }
  return std::max<std::size_t>(count, 1);
}

}  // namespace vistrelle::testing
