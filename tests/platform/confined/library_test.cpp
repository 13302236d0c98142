// What a library of workers does when all goes well, and what is left of it afterwards.

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "tests/platform/confined/confined_movies.h"
#include "tests/support/child.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"
#include "vistrelle/platform/media/ffmpeg/waiting_room.h"

namespace vistrelle::testing {

namespace {

using platform::ConfinedMediaLibrary;
using platform::ConfinedOptions;
using platform::MediaTime;

std::atomic<int> starts = 0;

/// Makes the library of the test program before the first test can start a thread.
class Preparation : public ::testing::Environment {
 public:
  void SetUp() override { ASSERT_TRUE(confinedLibrary()->prepare()); }
};
[[maybe_unused]] const auto* const preparation = ::testing::AddGlobalTestEnvironment(new Preparation);

}  // namespace

std::shared_ptr<ConfinedMediaLibrary> confinedLibrary() {
  static const auto library = [] {
    ConfinedOptions options;
    options.worker.refusal = platform::Refusal::kill;
    options.whenStarted = [] { ++starts; };
    return std::make_shared<ConfinedMediaLibrary>(options);
  }();
  return library;
}

namespace {

bool isThere(pid_t process) {
  return ::kill(process, 0) == 0;
}

/// Whether the process ends within a few seconds.
bool goes(pid_t process) {
  for (int i = 0; i < 500 && isThere(process); ++i) ::usleep(10000);
  return !isThere(process);
}

std::size_t openDescriptors() {
  std::size_t count = 0;
  DIR* folder = ::opendir("/proc/self/fd");
  while (::readdir(folder) != nullptr) ++count;
  ::closedir(folder);
  return count;
}

TEST(ConfinedLibrary, AWorkerBelongsToOneMovieAndGoesWithIt) {
  auto one = loadedConfined(dataFile("prog_8s.mp4"));
  auto other = loadedConfined(dataFile("sample.avi"));
  ASSERT_TRUE(one && other);
  const pid_t first = one->movie()->workerProcess();
  const pid_t second = other->movie()->workerProcess();
  EXPECT_GT(first, 0);
  EXPECT_NE(first, second);
  // A track keeps the worker.
  auto tracks = one->tracks();
  auto track =
      *std::ranges::find(tracks, platform::MediaType::video, [](const auto& each) { return each->mediaType(); });
  one.reset();
  EXPECT_TRUE(isThere(first));
  ASSERT_TRUE(track->makeImageGenerator());
  EXPECT_TRUE(track->makeImageGenerator()->copyFrame(MediaTime::zero()).picture);
  track.reset();
  tracks.clear();
  EXPECT_TRUE(goes(first));
  EXPECT_TRUE(isThere(second));
  other.reset();
  EXPECT_TRUE(goes(second));
}

TEST(ConfinedLibrary, PicturesOutliveTheirMovie) {
  platform::FrameResult result;
  {
    const auto asset = loadedConfined(dataFile("prog_8s.mp4"));
    result = asset->makeImageGenerator()->copyFrame(MediaTime::zero());
  }
  ASSERT_TRUE(result.picture);
  EXPECT_TRUE(result.picture->isValid());
  int sum = 0;
  const auto* image = result.picture->planar();
  for (int y = 0; y < image->height; ++y) sum += image->planes[0].data[std::ptrdiff_t{y} * image->planes[0].rowBytes];
  EXPECT_GT(sum, 0);
}

TEST(ConfinedLibrary, LeavesNoDescriptorBehind) {
  awaitOneThread();  // loading threads of the test before this one let go of theirs first
  const std::size_t before = openDescriptors();
  for (int i = 0; i < 20; ++i) {
    const auto asset = loadedConfined(dataFile("prog_8s.mp4"));
    ASSERT_TRUE(asset);
    const auto generator = asset->makeImageGenerator();
    EXPECT_TRUE(generator->copyFrame(MediaTime::make(i, 4)).picture);
  }
  for (int i = 0; i < 500 && openDescriptors() != before; ++i) ::usleep(10000);  // loading threads let go last
  EXPECT_EQ(openDescriptors(), before);
}

TEST(ConfinedLibrary, ManyPicturesOfSeveralGeneratorsOnSeveralThreads) {
  const auto asset = loadedConfined(dataFile("prog_8s.mp4"));
  ASSERT_TRUE(asset);
  std::atomic<int> pictures = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&asset, &pictures, i] {
      const auto generator = asset->makeImageGenerator();
      for (int n = 0; n < 10; ++n) pictures += generator->copyFrame(MediaTime::make(n + i, 2)).picture ? 1 : 0;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(pictures, 30);
}

/// Temporary files for waiting frames, which stay open here as well.
class KeptRooms : public platform::WaitingRooms {
 public:
  platform::UniqueFd open() override {
    kept = platform::UniqueFd(::memfd_create("frames", MFD_CLOEXEC));
    return platform::UniqueFd(::fcntl(kept.get(), F_DUPFD_CLOEXEC, 0));
  }
  platform::UniqueFd kept;
};

TEST(ConfinedLibrary, FramesThatWaitBeyondMemoryFindRoom) {
  const ScratchFolder folder;
  const std::string movie = folder.file("movie.mp4");
  // One group of 42 MB of frames, all wanted, the last one first.
  ASSERT_EQ(runProgram({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc2=s=1280x720:r=10", "-t", "3", "-c:v",
                        "mpeg4", "-g", "100", "-sc_threshold", "1000000000", movie})
                .status,
            0);
  const auto rooms = std::make_shared<KeptRooms>();
  const auto former = platform::waitingRooms().install(rooms);
  const auto asset = loadedConfined(movie);
  ASSERT_TRUE(asset);
  const auto generator = asset->makeImageGenerator();
  std::vector<MediaTime> times;
  for (int i = 29; i >= 0; --i) times.push_back(MediaTime::make(i, 10));
  generator->announce(times);
  for (const MediaTime& time : times) {
    const auto result = generator->copyFrame(time);
    EXPECT_TRUE(result.picture) << result.error;
    EXPECT_EQ(result.actualTime, time);
  }
  platform::waitingRooms().install(former);
  ASSERT_TRUE(rooms->kept) << "no room was asked for";
  struct stat room {};
  ASSERT_EQ(::fstat(rooms->kept.get(), &room), 0);
  EXPECT_GT(room.st_size, 1280 * 720);
}

TEST(ConfinedLibrary, CompletionIsCalledOnceOnAnotherThread) {
  const auto asset = confinedLibrary()->openAsset(dataFile("prog_8s.mp4"), {});
  const auto ended = std::make_shared<platform::Signal>();
  const auto here = std::this_thread::get_id();
  const auto calls = std::make_shared<std::atomic<int>>(0);
  for (int i = 0; i < 3; ++i) {
    asset->loadValuesAsynchronously({}, [ended, calls, here] {
      EXPECT_NE(std::this_thread::get_id(), here);
      if (++*calls == 3) ended->set();
    });
  }
  ASSERT_TRUE(ended->waitReal(kLong));
  EXPECT_EQ(*calls, 3);
  EXPECT_EQ(asset->tracks().size(), 2U);
}

TEST(ConfinedLibrary, WhatIsNoRegularFileIsRefused) {
  const ScratchFolder folder;
  RecordingLog log;
  EXPECT_FALSE(confinedLibrary()->openAsset("/dev/zero", {}));
  EXPECT_FALSE(confinedLibrary()->openAsset(folder.path(), {}));
  EXPECT_TRUE(log.has("movie open          :-( '/dev/zero': not a regular file"));
}

TEST(ConfinedLibrary, TellsOnceThatWorkersCanCome) {
  EXPECT_EQ(starts, 1);
  EXPECT_TRUE(confinedLibrary()->openAsset(dataFile("prog_8s.mp4"), {}));
  EXPECT_TRUE(confinedLibrary()->prepare());
  EXPECT_EQ(starts, 1);
}

TEST(ConfinedLibrary, WithThreadsRunningItReadsMoviesItselfAndSaysSo) {
  RecordingLog log;
  platform::Signal end;
  std::thread other([&end] { end.waitReal(kLong); });
  ConfinedOptions options;
  bool hasStarted = false;
  options.whenStarted = [&hasStarted] { hasStarted = true; };
  const auto library = std::make_shared<ConfinedMediaLibrary>(options);
  const auto asset = library->openAsset(dataFile("prog_8s.mp4"), {});
  ASSERT_TRUE(asset && load(*asset));
  library->openAsset(dataFile("prog_8s.mp4"), {});
  end.set();
  other.join();
  EXPECT_FALSE(hasStarted);
  EXPECT_EQ(asset->tracks().size(), 2U);
  EXPECT_EQ(log.lines().size(), 1U);
  EXPECT_TRUE(log.hasContaining("movie confinement   :-/ none, movies are read in this process ("));
}

/// A library of a child process with the worker's number, which the child tells.
pid_t startChildWithWorker(pid_t* child) {
  int ends[2];
  EXPECT_EQ(::pipe(ends), 0);
  *child = ::fork();
  if (*child == 0) {
    auto library = std::make_shared<ConfinedMediaLibrary>();
    const auto asset = loadedConfined(dataFile("prog_8s.mp4"), library);
    const pid_t numbers[2]{asset ? asset->movie()->workerProcess() : -1, library->nursery()->process()};
    (void)!::write(ends[1], numbers, sizeof numbers);
    ::pause();
    ::_exit(0);
  }
  ::close(ends[1]);
  pid_t numbers[2]{-1, -1};
  EXPECT_EQ(::read(ends[0], numbers, sizeof numbers), static_cast<ssize_t>(sizeof numbers));
  ::close(ends[0]);
  return numbers[0];
}

TEST(ConfinedLibrary, WorkersEndWithTheirProgramHoweverItEnds) {
  for (const int signal : {SIGKILL, SIGTERM, SIGINT}) {
    pid_t child = -1;
    const pid_t worker = startChildWithWorker(&child);
    ASSERT_GT(worker, 0);
    EXPECT_TRUE(isThere(worker));
    ::kill(child, signal);
    ::waitpid(child, nullptr, 0);
    EXPECT_TRUE(goes(worker)) << signal;
  }
}

}  // namespace
}  // namespace vistrelle::testing
