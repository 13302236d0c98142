// Very many pictures from mixed movies in one process: memory, descriptors, threads and children stay what they were.
// VISTRELLE_LONG=1: 10,000 pictures, else 300; the seed is printed.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/child.h"
#include "tests/support/clips.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/movie/loader.h"
#include "vistrelle/movie/thumbnails.h"
#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/media/asset.h"
#include "vistrelle/platform/media/confined/confined_library.h"

namespace vistrelle::testing {
namespace {

namespace fs = std::filesystem;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;  // whose memory grows for its own reasons
#else
constexpr bool kIsSanitized = false;
#endif

constexpr const char* kMovies[] = {"animation.mov",
                                   "apple-prores-422-proxy.mov",
                                   "bbb_642x642_768kbps_30fps_vp9.webm",
                                   "cursed-vfr.mp4",
                                   "h265_10bits.mp4",
                                   "nasa_13013.mp4",
                                   "photo-jpeg.mov",
                                   "prog_8s.mp4",
                                   "rotated_video.mp4",
                                   "sample_fragmented.mp4",
                                   "sample_with_chapters.mkv",
                                   "xdcam-ex-720p24.mov"};

class Silence : public platform::LogSink {
 public:
  void message(std::string_view) override {}
  void plain(std::string_view) override {}
};

std::size_t entriesIn(const char* folder) {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), {}));
}

/// The line that tells of a process; empty when it has gone meanwhile.
std::string statOf(const fs::path& process) {
  const int file = ::open((process / "stat").c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return {};
  char text[1024];
  const ssize_t count = ::read(file, text, sizeof text);
  ::close(file);
  return count > 0 ? std::string(text, static_cast<std::size_t>(count)) : std::string();
}

/// The processes that descend from this one.
std::vector<pid_t> descendants() {
  std::multimap<pid_t, pid_t> childrenOf;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    if (std::atol(entry.path().filename().c_str()) == 0) continue;
    const std::string stat = statOf(entry.path());  // proc(5): pid (name) state parent
    const std::size_t name = stat.rfind(')');
    if (name == std::string::npos) continue;
    char state = 0;
    pid_t parent = 0;
    std::istringstream(stat.substr(name + 1)) >> state >> parent;
    childrenOf.emplace(parent, static_cast<pid_t>(std::atol(stat.c_str())));
  }
  std::vector<pid_t> found{::getpid()};
  for (std::size_t i = 0; i < found.size(); ++i) {
    const auto [begin, end] = childrenOf.equal_range(found[i]);
    for (auto child = begin; child != end; ++child) found.push_back(child->second);
  }
  found.erase(found.begin());
  return found;
}

/// What has been allocated and not been freed. (A thread's small pieces for later count as allocated.)
long allocatedKilobytes() {
  const struct mallinfo2 state = ::mallinfo2();
  return static_cast<long>((state.uordblks + state.hblkhd) / 1024);
}

/// What the process holds. Memory that has been freed goes back first, as far as it can.
long residentKilobytes() {
  ::malloc_trim(0);
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    long kilobytes = 0;
    if (word == "VmRSS:" && status >> kilobytes) return kilobytes;
  }
  return 0;
}

struct State {
  std::size_t descriptors = 0;
  std::size_t threads = 0;
  std::size_t processes = 0;
  bool operator==(const State&) const = default;

  static State now() { return {entriesIn("/proc/self/fd"), entriesIn("/proc/self/task"), descendants().size()}; }
};

std::ostream& operator<<(std::ostream& stream, const State& state) {
  return stream << state.descriptors << " descriptors, " << state.threads << " threads, " << state.processes
                << " processes below";
}

/// The state once what is on its way out has gone: `wanted`, or what it is after a minute.
State settled(const State& wanted) {
  State state = State::now();
  for (int i = 0; i < 6000 && state != wanted; ++i) {
    ::usleep(10000);
    state = State::now();
  }
  return state;
}

/// The state when it has been the same for a second.
State unchanging() {
  State state = State::now();
  for (int same = 0; same < 100; ++same) {
    ::usleep(10000);
    const State next = State::now();
    if (next != state) same = 0;
    state = next;
  }
  return state;
}

/// The most there was of something in the first part of a run, and after it.
struct Highest {
  long first = 0;
  long after = 0;
  void note(bool isFirst, long value) { (isFirst ? first : after) = std::max(isFirst ? first : after, value); }
};

class Soak {
 public:
  Soak() : random_(kSeed) { std::cout << "seed " << kSeed << std::endl; }

  /// The process may hold at most so many times what it held at first.
  void run(int pictures, double mostGrowth) {
    const int settledAfter = std::min(500, pictures / 2);
    int round = 0;
    State atFirst;
    Highest allocated;
    Highest resident;
    for (int made = 0; made < pictures && !::testing::Test::HasFailure(); ++round) {
      made += shoot(kMovies[static_cast<std::size_t>(round) % std::size(kMovies)]);
      // Every movie has had its turn: whatever is made once has been made.
      if (round + 1 == static_cast<int>(std::size(kMovies))) atFirst = unchanging();
      if (round + 1 > static_cast<int>(std::size(kMovies))) {
        const State state = settled(atFirst);
        EXPECT_EQ(state, atFirst) << "after " << made << " pictures";
      }
      allocated.note(made <= settledAfter, allocatedKilobytes());
      resident.note(made <= settledAfter, residentKilobytes());
    }
    std::cout << pictures << " pictures: " << atFirst << "; in the first " << settledAfter << " and after, at most "
              << allocated.first << " and " << allocated.after << " KiB allocated, " << resident.first << " and "
              << resident.after << " KiB held" << std::endl;
    if (!kIsSanitized) {
      EXPECT_LE(allocated.after, allocated.first + kMostNewKilobytes);
      EXPECT_LE(static_cast<double>(resident.after), mostGrowth * static_cast<double>(resident.first));
    }
  }

 private:
  static constexpr unsigned kSeed = 20261121;
  static constexpr int kTimes = 8;
  static constexpr long kMostNewKilobytes = 256;  // the small pieces that one thread keeps for later

  /// Pictures of one movie at some times; how many.
  int shoot(const char* movie) {
    const std::string pictures = folder_.file("pictures");
    fs::create_directory(pictures);
    std::vector<std::string> times;
    std::uniform_int_distribution<int> halves(0, 9);
    for (int i = 0; i < kTimes; ++i) {
      const int half = halves(random_);
      times.push_back(std::to_string(half / 2) + (half % 2 == 0 ? ".0" : ".5"));
    }
    EXPECT_TRUE(Mirelund(sampleMovie(movie), pictures, 320, 240, times)) << movie;
    EXPECT_EQ(entriesIn(pictures.c_str()), std::size_t{kTimes}) << movie;
    MYMOVIErelease();
    fs::remove_all(pictures);
    return kTimes;
  }

  ScratchFolder folder_;
  std::mt19937 random_;
};

bool isLong() {
  return std::getenv("VISTRELLE_LONG") != nullptr;
}

int pictureCount() {
  return isLong() ? 10000 : 300;
}

TEST(SoakTest, InThisProcess) {
  EXPECT_TRUE(inChild([] {
    platform::logSink().install(std::make_shared<Silence>());
    // As a host that wants to stay small: the C library keeps the freed memory of its further arenas, each of which a
    // decoder's thread may come upon, for good.
    ::mallopt(M_ARENA_MAX, 1);
    Soak().run(pictureCount(), isLong() ? 1.01 : 1.05);
  }));
}

TEST(SoakTest, Confined) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the thread sanitizer's runtime has a thread of its own";
#endif
  EXPECT_TRUE(inChild([] {
    platform::logSink().install(std::make_shared<Silence>());
    const auto library = std::make_shared<platform::ConfinedMediaLibrary>();
    ASSERT_TRUE(library->prepare());
    platform::mediaLibrary().install(library);
    // A short run has seen too little to tell a percent.
    Soak().run(pictureCount(), isLong() ? 1.01 : 1.10);
  }));
}

}  // namespace
}  // namespace vistrelle::testing
