#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <iostream>
#include <random>

#include "tests/files/files_fixture.h"
#include "vistrelle/files/guarded.h"

// Moves and copies that are killed at a random moment. VISTRELLE_LONG=1 kills 200 times each, else 20.
namespace vistrelle {
namespace {

using namespace testing;
using std::chrono::microseconds;

const std::string content(1'000'000, 'x');
constexpr int filesInTree = 60;

void makeTree(const std::string& root) {
  fs::create_directories(root + "/inner");
  for (int number = 0; number < filesInTree; ++number) {
    const std::string file = root + (number % 2 ? "/" : "/inner/") + std::to_string(number);
    ASSERT_TRUE(platform::fileManager().get()->writeInPlace(file, platform::bytesOf(content.substr(0, 30'000))).ok());
  }
}

/// Whether the file holds this many bytes of content.
bool isWhole(const std::string& path, std::size_t size) {
  const auto data = platform::fileManager().get()->contents(path, 10'000'000);
  return data && data->size() == size && std::memcmp(data->data(), content.data(), size) == 0;
}

bool isWholeTree(const std::string& root) {
  for (int number = 0; number < filesInTree; ++number) {
    const std::string file = root + (number % 2 ? "/" : "/inner/") + std::to_string(number);
    if (!isWhole(file, 30'000)) return false;
  }
  return true;
}

void makeFile(const std::string& path) {
  ASSERT_TRUE(platform::fileManager().get()->writeInPlace(path, platform::bytesOf(content)).ok());
}

bool isWholeFile(const std::string& path) {
  return isWhole(path, content.size());
}

struct Item {
  void (*make)(const std::string&);
  bool (*isWhole)(const std::string&);
};

class Killed : public FilesTest, public ::testing::WithParamInterface<bool> {
 protected:
  using Operation = bool (*)(const OptionalText&, const OptionalText&, const OptionalText&);

  /// Forks the operation and kills it after `delay`; without one it may end. How long it ran.
  static microseconds run(Operation operation, const std::string& source, const std::string& destination,
                          std::optional<microseconds> delay) {
    const auto begin = std::chrono::steady_clock::now();
    const pid_t child = ::fork();
    if (child == 0) ::_exit(operation(source, destination, "y") ? 0 : 1);
    if (delay) {
      ::usleep(static_cast<useconds_t>(delay->count()));
      ::kill(child, SIGKILL);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return std::chrono::duration_cast<microseconds>(std::chrono::steady_clock::now() - begin);
  }

  void killOften(Operation operation, bool sourceMayGo, const std::string& other) {
    const Item item = GetParam() ? Item{makeTree, isWholeTree} : Item{makeFile, isWholeFile};
    const bool isLong = ::getenv("VISTRELLE_LONG") != nullptr;
    const unsigned seed = isLong ? std::random_device()() : 4711;
    std::cout << "seed " << seed << std::endl;
    std::mt19937 engine(seed);
    const std::string source = scratch.file("source");
    const std::string destination = other + "/destination";
    microseconds duration{};
    for (int round = 0; round <= (isLong ? 200 : 20); ++round) {
      fs::remove_all(source);
      for (const auto& entry : fs::directory_iterator(other)) fs::remove_all(entry.path());
      item.make(source);
      if (round % 2) item.make(destination);
      // The first round runs to its end, to know how long that takes.
      std::optional<microseconds> delay;
      if (round > 0) {
        delay = microseconds(std::uniform_int_distribution<long>(0, duration.count() * 11 / 10)(engine));
      }
      const microseconds ran = run(operation, source, destination, delay);
      if (round == 0) duration = ran;
      const bool sourceWhole = item.isWhole(source);
      ASSERT_TRUE(sourceWhole || (sourceMayGo && item.isWhole(destination))) << "round " << round;
      // Where nothing had to make room first, the destination is whole or not there.
      const bool madeRoom = round % 2 != 0;
      ASSERT_TRUE(madeRoom || !exists(destination) || item.isWhole(destination)) << "round " << round;
    }
  }

  void onTwoVolumes(Operation operation, bool sourceMayGo) {
    const std::string other = scratch.makeFolder("other");
    if (!canMount()) GTEST_SKIP() << "a mount of one's own is not possible here";
    EXPECT_TRUE(inChild([&] {
      ASSERT_TRUE(mountScratch(other.c_str(), "size=64m"));
      killOften(operation, sourceMayGo, other);
    }));
  }
};

TEST_P(Killed, moveWithinAVolume) {
  killOften(&mv, true, scratch.makeFolder("beside"));
}
TEST_P(Killed, moveAcrossVolumes) {
  onTwoVolumes(&mv, true);
}
TEST_P(Killed, copyWithinAVolume) {
  killOften(&cpCocoa, false, scratch.makeFolder("beside"));
}
TEST_P(Killed, copyAcrossVolumes) {
  onTwoVolumes(&cpCocoa, false);
}

INSTANTIATE_TEST_SUITE_P(FilesAndFolders, Killed, ::testing::Bool(),
                         [](const auto& param) { return param.param ? std::string("folder") : std::string("file"); });

}  // namespace
}  // namespace vistrelle
