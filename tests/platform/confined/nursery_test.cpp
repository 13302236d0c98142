// The process that makes workers: what it and they keep of the program, when they end, and a slow start.

#include "vistrelle/platform/media/confined/nursery.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "tests/platform/confined/fake_workers.h"
#include "tests/support/child.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/media/confined/confinement.h"

namespace vistrelle::testing {
namespace {

using platform::Channel;
using platform::Message;
using platform::Nursery;
using platform::wire::Kind;

/// What the descriptors of a process lead to.
std::vector<std::string> descriptorsOf(pid_t process) {
  std::vector<std::string> targets;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/fd")) {
    std::error_code gone;
    targets.push_back(std::filesystem::read_symlink(entry, gone).string());
  }
  return targets;
}

TEST(NurseryTest, ItAndItsWorkersHaveNoDescriptorOfTheProgram) {
  const ScratchFolder folder;
  const std::string secret = std::filesystem::canonical(folder.write("secret", "s")).string();
  const std::string movie = std::filesystem::canonical(dataFile("prog_8s.mp4")).string();
  const int kept = ::open(secret.c_str(), O_RDONLY);  // not even closed on exec
  ASSERT_GE(kept, 0);
  const auto library = libraryOf([](const Channel& channel) { platform::runWorker(channel, {}); });
  const auto asset = loadedConfined(movie, library);
  ::close(kept);
  ASSERT_TRUE(asset);
  for (const pid_t process : {library->nursery()->process(), asset->movie()->workerProcess()}) {
    SCOPED_TRACE(process == asset->movie()->workerProcess() ? "worker" : "nursery");
    int sockets = 0;
    int movies = 0;
    int others = 0;
    for (const std::string& target : descriptorsOf(process)) {
      EXPECT_NE(target, secret);
      sockets += target.starts_with("socket:") ? 1 : 0;
      movies += target == movie ? 1 : 0;
      others += target != "/dev/null" && target != movie && !target.starts_with("socket:") ? 1 : 0;
    }
    const bool isWorker = process == asset->movie()->workerProcess();
    EXPECT_EQ(movies, isWorker ? 1 : 0);
    EXPECT_LE(sockets, isWorker ? 1 : 2);  // the nursery has one of the next worker
#if defined(__SANITIZE_ADDRESS__)
    EXPECT_LE(others, 1);  // standard error, for the sanitizer's report
#else
    EXPECT_EQ(others, 0);
#endif
  }
}

/// Whether there is no such process, or only what is left until somebody collects it.
bool hasEnded(pid_t process) {
  const std::string stat = readFile("/proc/" + std::to_string(process) + "/stat");
  const std::size_t name = stat.rfind(") ");  // proc(5): pid (name) state
  return name == std::string::npos || stat[name + 2] == 'Z' || stat[name + 2] == 'X';
}

/// Starts a nursery in a process of its own, which is ended; whether the process that it tells of ends as well. That
/// one looks at nothing, so that only the kernel can tell it.
bool endsWithItsParent(const std::function<pid_t()>& start) {
  int ends[2];
  if (::pipe(ends) != 0) return false;
  const pid_t program = ::fork();
  if (program == 0) {
    const pid_t process = start();
    (void)!::write(ends[1], &process, sizeof process);
    ::sleep(60);
    ::_exit(0);
  }
  pid_t process = -1;
  ::close(ends[1]);
  const bool isTold = ::read(ends[0], &process, sizeof process) == sizeof process && process > 0;
  ::close(ends[0]);
  ::kill(program, SIGKILL);
  ::waitpid(program, nullptr, 0);
  if (!isTold) return false;
  for (int i = 0; i < 3000 && !hasEnded(process); ++i) ::usleep(10000);
  return hasEnded(process);
}

TEST(NurseryTest, AWorkerThatIsDeafEndsWithTheProgram) {
  awaitOneThread();
  EXPECT_TRUE(endsWithItsParent([] {
    std::string error;
    static const auto nursery = Nursery::start([](const Channel&) { ::sleep(60); }, {}, &error);
    static const auto worker = nursery ? nursery->makeWorker(&error) : std::nullopt;
    return worker ? worker->process : -1;
  }));
}

void createFile(const std::string& path) {
  ::close(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
}

void awaitFile(const std::string& path) {
  while (::access(path.c_str(), F_OK) != 0) ::usleep(1000);
}

TEST(NurseryTest, WhileItStartsItEndsWithTheProgram) {
  awaitOneThread();
  const ScratchFolder folder;
  const std::string begun = folder.file("begun");
  EXPECT_TRUE(endsWithItsParent([&begun] {
    std::string error;
    const auto start = [&begun] {
      createFile(begun);
      ::sleep(60);
    };
    static const auto nursery = Nursery::start([](const Channel&) {}, start, &error);
    awaitFile(begun);
    return nursery ? nursery->process() : -1;
  }));
}

// An answer that nobody waited for any more is no answer to the next question.
TEST(NurseryTest, ThatStartsSlowlyAnswersRightAfterwards) {
  awaitOneThread();
  const ScratchFolder folder;
  const std::string ready = folder.file("ready");
  std::string error;
  const auto nursery = Nursery::start([](const Channel&) { ::_exit(7); }, [&ready] { awaitFile(ready); }, &error,
                                      std::chrono::seconds(3));
  ASSERT_TRUE(nursery) << error;
  EXPECT_FALSE(nursery->makeWorker(&error));
  EXPECT_EQ(error, "the process that makes decoders does not answer");
  createFile(ready);
  std::optional<platform::Worker> worker;
  for (int i = 0; i < 20 && !worker; ++i) worker = nursery->makeWorker(&error);
  ASSERT_TRUE(worker) << error;
  // It ends by itself, so it is waited for, not ended.
  Message message;
  EXPECT_EQ(worker->channel.receive(&message, -1, false), Channel::Status::ended);
  const std::string end = nursery->endWorker(worker->process);
  EXPECT_TRUE(end == "status 7" || end == "signal 9 (Killed)") << end;  // it may have been on its way out
}

TEST(NurseryTest, AMissingWallIsNamedOnce) {
  awaitOneThread();
  if (!inChild([] { EXPECT_EQ(platform::confineProcess({}, platform::Refusal::error).missing(), ""); })) {
    GTEST_SKIP() << "this kernel lacks a wall, which earlier tests have been told of";
  }
  EXPECT_TRUE(inChild([] {
    const auto library = libraryOf([](const Channel& channel) {
      channel.send(Message(n(Kind::hello), platform::ConfinementReport{1, 1, 0, 1}));
      serveOpen(channel);
      ::pause();
    });
    RecordingLog log;
    const auto one = openWith(library);
    const auto other = openWith(library);
    EXPECT_TRUE(one && other && one->isPlayable() && other->isPlayable());
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0], "movie confinement   :-/ decoders run without seccomp");
  }));
}

}  // namespace
}  // namespace vistrelle::testing
