#include "vistrelle/platform/media/export/export_session.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "tests/support/child.h"
#include "tests/support/fake_movie.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/media/export/export_work.h"

namespace vistrelle::platform {
namespace {

using namespace std::chrono_literals;
using testing::FakeAsset;
using testing::readFile;
using testing::ScratchFolder;

using Write = std::function<bool(Asset&, int, const ExportControl&, std::string*)>;

bool writeText(int fd, const std::string& text) {
  return ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

Write writing(const std::string& text) {
  return [text](Asset&, int fd, const ExportControl&, std::string*) { return writeText(fd, text); };
}

std::shared_ptr<ExportSession> sessionFor(const std::string& path, Write write) {
  auto session = makeExportSession(std::make_shared<FakeAsset>(), "preset", {{"type", "other"}, std::move(write)});
  session->setOutputUrl(Url{fileUrlText(path)});
  session->setOutputFileType("type");
  return session;
}

/// Runs a session to its end; how often the completion was called.
int run(ExportSession& session) {
  Signal ended;
  std::atomic<int> calls = 0;
  session.exportAsynchronously([&] {
    ++calls;
    ended.set();
  });
  EXPECT_TRUE(ended.waitReal(60s));
  return calls;
}

std::size_t entriesOf(const std::string& folder) {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++count;
  return count;
}

TEST(ExportSession, WritesAFileAndSaysSoOnce) {
  const ScratchFolder folder;
  const std::string path = folder.file("a b%20é.mov");
  const auto session = sessionFor(path, writing("content"));
  EXPECT_EQ(session->status(), ExportStatus::unknown);
  EXPECT_EQ(session->progress(), 0.0F);
  EXPECT_EQ(session->outputFileType(), "type");
  EXPECT_EQ(session->supportedFileTypes(), (std::vector<std::string>{"type", "other"}));
  EXPECT_EQ(run(*session), 1);
  EXPECT_EQ(session->status(), ExportStatus::completed);
  EXPECT_EQ(session->error(), std::nullopt);
  EXPECT_EQ(session->progress(), 1.0F);
  EXPECT_EQ(readFile(path), "content");
  EXPECT_EQ(entriesOf(folder.path()), 1U);
}

TEST(ExportSession, IsStartedOnce) {
  const ScratchFolder folder;
  std::atomic<int> runs = 0;
  const auto session = sessionFor(folder.file("a.mov"), [&](Asset&, int fd, const ExportControl&, std::string*) {
    ++runs;
    return writeText(fd, "x");
  });
  run(*session);
  session->exportAsynchronously([&] { runs = 100; });
  std::this_thread::sleep_for(20ms);
  EXPECT_EQ(runs, 1);
}

TEST(ExportSession, CompletionRunsOnAThreadOfItsOwnWithEverythingFinal) {
  const ScratchFolder folder;
  const std::string path = folder.file("a.mov");
  const auto session = sessionFor(path, writing("x"));
  Signal ended;
  std::thread::id where;
  ExportStatus status = ExportStatus::unknown;
  bool isThere = false;
  session->exportAsynchronously([&] {
    where = std::this_thread::get_id();
    status = session->status();
    isThere = std::filesystem::exists(path);
    ended.set();
  });
  ASSERT_TRUE(ended.waitReal(60s));
  EXPECT_NE(where, std::this_thread::get_id());
  EXPECT_EQ(status, ExportStatus::completed);
  EXPECT_TRUE(isThere);
}

TEST(ExportSession, NothingStandsUnderAnyNameBeforeTheEnd) {
  const ScratchFolder folder;
  const std::string path = folder.file("a.mov");
  bool isThere = true;
  const auto session = sessionFor(path, [&](Asset&, int fd, const ExportControl&, std::string*) {
    isThere = std::filesystem::exists(path);
    return writeText(fd, "x");
  });
  run(*session);
  EXPECT_FALSE(isThere);
  EXPECT_EQ(readFile(path), "x");
}

TEST(ExportSession, AFailureLeavesNothingBehindAndKeepsItsError) {
  const ScratchFolder folder;
  const auto session = sessionFor(folder.file("a.mov"), [](Asset&, int fd, const ExportControl&, std::string* error) {
    writeText(fd, std::string(10000, 'x'));
    *error = "too bad";
    return false;
  });
  EXPECT_EQ(run(*session), 1);
  EXPECT_EQ(session->status(), ExportStatus::failed);
  EXPECT_EQ(session->error(), "too bad");
  EXPECT_LT(session->progress(), 1.0F);
  EXPECT_EQ(entriesOf(folder.path()), 0U);
}

TEST(ExportSession, AnExceptionIsAFailure) {
  const ScratchFolder folder;
  const auto session = sessionFor(folder.file("a.mov"), [](Asset&, int, const ExportControl&, std::string*) -> bool {
    throw std::runtime_error("thrown");
  });
  EXPECT_EQ(run(*session), 1);
  EXPECT_EQ(session->status(), ExportStatus::failed);
  EXPECT_EQ(session->error(), "thrown");
}

TEST(ExportSession, AFailureLeavesTheOldFileAlone) {
  const ScratchFolder folder;
  const std::string path = folder.write("a.mov", "old");
  const auto session = sessionFor(path, [](Asset&, int fd, const ExportControl&, std::string*) {
    writeText(fd, "new");
    return false;
  });
  run(*session);
  EXPECT_EQ(session->status(), ExportStatus::failed);
  EXPECT_TRUE(session->error().has_value());
  EXPECT_EQ(readFile(path), "old");
  EXPECT_EQ(entriesOf(folder.path()), 1U);
}

TEST(ExportSession, AnOldFileIsReplacedWholeWithItsMode) {
  const ScratchFolder folder;
  const std::string path = folder.write("a.mov", "old");
  ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
  std::string meanwhile;
  const auto session = sessionFor(path, [&](Asset&, int fd, const ExportControl&, std::string*) {
    const bool written = writeText(fd, "new");
    meanwhile = readFile(path);
    return written;
  });
  run(*session);
  EXPECT_EQ(meanwhile, "old");
  EXPECT_EQ(readFile(path), "new");
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640U);
  EXPECT_EQ(entriesOf(folder.path()), 1U);
}

TEST(ExportSession, AFileThatAppearsMeanwhileIsNotReplaced) {
  const ScratchFolder folder;
  const std::string path = folder.file("a.mov");
  const auto session = sessionFor(path, [&](Asset&, int fd, const ExportControl&, std::string*) {
    folder.write("a.mov", "another program's");
    return writeText(fd, "new");
  });
  run(*session);
  EXPECT_EQ(session->status(), ExportStatus::failed);
  EXPECT_EQ(readFile(path), "another program's");
  EXPECT_EQ(entriesOf(folder.path()), 1U);
}

TEST(ExportSession, LinksAreFollowed) {
  const ScratchFolder folder;
  const std::string target = folder.file("target.mov");
  const std::string link = folder.file("link.mov");
  std::filesystem::create_symlink("target.mov", link);
  run(*sessionFor(link, writing("first")));
  EXPECT_EQ(readFile(target), "first");
  run(*sessionFor(link, writing("second")));
  EXPECT_EQ(readFile(target), "second");
  EXPECT_TRUE(std::filesystem::is_symlink(link));
}

TEST(ExportSession, BadDestinationsFailBeforeAnythingIsWritten) {
  const ScratchFolder folder;
  folder.makeFolder("folder");
  ASSERT_EQ(::mkfifo(folder.file("fifo").c_str(), 0600), 0);
  for (const char* name : {"missing/a.mov", "folder", "fifo"}) {
    bool wrote = false;
    const auto session = sessionFor(folder.file(name), [&](Asset&, int, const ExportControl&, std::string*) {
      wrote = true;
      return true;
    });
    EXPECT_EQ(run(*session), 1);
    EXPECT_EQ(session->status(), ExportStatus::failed) << name;
    EXPECT_NE(session->error().value_or("").find(name), std::string::npos) << session->error().value_or("");
    EXPECT_FALSE(wrote) << name;
  }
  EXPECT_EQ(entriesOf(folder.path()), 2U);
}

TEST(ExportSession, AClosedFolderIsAFailure) {
  if (!testing::isAdministrator()) GTEST_SKIP() << "needs to become another user";
  const ScratchFolder folder;
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  EXPECT_TRUE(testing::inChild([&] {
    testing::becomeNobody();
    const auto session = sessionFor(folder.file("a.mov"), writing("x"));
    run(*session);
    EXPECT_EQ(session->status(), ExportStatus::failed);
  }));
}

TEST(ExportSession, WithoutOutputOrWithAnUnsupportedTypeItFails) {
  const ScratchFolder folder;
  const auto nowhere = makeExportSession(std::make_shared<FakeAsset>(), "preset", {{"type"}, writing("x")});
  run(*nowhere);
  EXPECT_EQ(nowhere->status(), ExportStatus::failed);
  const auto session = sessionFor(folder.file("a.mov"), writing("x"));
  session->setOutputFileType("unknown");
  EXPECT_EQ(session->outputFileType(), "unknown");
  run(*session);
  EXPECT_EQ(session->status(), ExportStatus::failed);
  EXPECT_EQ(entriesOf(folder.path()), 0U);
}

TEST(ExportSession, ProgressNeverFallsAndStaysInItsRange) {
  const ScratchFolder folder;
  std::vector<float> seen;
  std::shared_ptr<ExportSession> session;
  session = sessionFor(folder.file("a.mov"), [&](Asset&, int fd, const ExportControl& control, std::string*) {
    for (const double done : {0.25, 0.1, -1.0, 0.5, 7.0}) {
      control.progress(done);
      seen.push_back(session->progress());
    }
    return writeText(fd, "x");
  });
  run(*session);
  EXPECT_EQ(seen, (std::vector<float>{0.25F, 0.25F, 0.25F, 0.5F, 1.0F}));
}

/// Works until it is told to stop.
Write working(Signal& begun) {
  return [&begun](Asset&, int fd, const ExportControl& control, std::string*) {
    writeText(fd, "half");
    begun.set();
    while (!control.isCancelled()) std::this_thread::sleep_for(1ms);
    return false;
  };
}

TEST(ExportSession, CancellingLeavesNothingButTheOldFile) {
  const ScratchFolder folder;
  const std::string path = folder.write("a.mov", "old");
  Signal begun;
  Signal ended;
  const auto session = sessionFor(path, working(begun));
  session->exportAsynchronously([&] { ended.set(); });
  ASSERT_TRUE(begun.waitReal(60s));
  EXPECT_EQ(session->status(), ExportStatus::exporting);
  session->cancelExport();
  ASSERT_TRUE(ended.waitReal(60s));
  EXPECT_EQ(session->status(), ExportStatus::cancelled);
  EXPECT_EQ(session->error(), std::nullopt);
  EXPECT_EQ(readFile(path), "old");
  EXPECT_EQ(entriesOf(folder.path()), 1U);
}

TEST(ExportSession, AWriterThatMissesTheCancellationDoesNotCompleteEither) {
  const ScratchFolder folder;
  std::shared_ptr<ExportSession> session;
  session = sessionFor(folder.file("a.mov"), [&](Asset&, int fd, const ExportControl&, std::string*) {
    session->cancelExport();
    return writeText(fd, "x");
  });
  run(*session);
  EXPECT_EQ(session->status(), ExportStatus::cancelled);
  EXPECT_EQ(entriesOf(folder.path()), 0U);
}

TEST(ExportSession, DroppingItCancelsAndWaits) {
  const ScratchFolder folder;
  Signal begun;
  std::atomic<int> calls = 0;
  {
    const auto session = sessionFor(folder.file("a.mov"), working(begun));
    session->exportAsynchronously([&] { ++calls; });
    ASSERT_TRUE(begun.waitReal(60s));
  }
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(entriesOf(folder.path()), 0U);
}

TEST(ExportSession, MayBeDroppedByItsOwnCompletion) {
  const ScratchFolder folder;
  const std::string path = folder.file("a.mov");
  auto session = sessionFor(path, writing("x"));
  Signal ended;
  Signal started;
  ExportSession* raw = session.get();
  raw->exportAsynchronously([&] {
    started.waitReal(60s);
    session.reset();
    ended.set();
  });
  started.set();
  ASSERT_TRUE(ended.waitReal(60s));
  EXPECT_EQ(readFile(path), "x");
}

TEST(ExportSession, AFullDiskIsAFailureThatLeavesTheOldFile) {
  if (!testing::canMount()) GTEST_SKIP() << "this machine does not let a test mount a disk";
  const ScratchFolder folder;
  EXPECT_TRUE(testing::inChild([&] {
    ASSERT_TRUE(testing::mountScratch(folder.path().c_str(), "size=1m"));
    const std::string path = folder.write("a.mov", "old");
    const auto session = sessionFor(path, [](Asset&, int fd, const ExportControl&, std::string* error) {
      for (int i = 0; i < 64; ++i) {
        if (!writeText(fd, std::string(65536, 'x'))) {
          *error = "full";
          return false;
        }
      }
      return true;
    });
    run(*session);
    EXPECT_EQ(session->status(), ExportStatus::failed);
    EXPECT_EQ(readFile(path), "old");
    EXPECT_EQ(entriesOf(folder.path()), 1U);
  }));
}

TEST(ExportSession, BeyondTheSizeLimitTheOldFileStaysAndTheProcessToo) {
  const ScratchFolder folder;
  EXPECT_TRUE(testing::inChild([&] {
    const std::string path = folder.write("a.mov", "old");
    const rlimit limit{100'000, 100'000};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    const auto session = sessionFor(path, [](Asset&, int fd, const ExportControl&, std::string*) {
      return writeText(fd, std::string(65536, 'x')) && writeText(fd, std::string(65536, 'x'));
    });
    run(*session);
    EXPECT_EQ(session->status(), ExportStatus::failed);
    EXPECT_EQ(readFile(path), "old");
    EXPECT_EQ(entriesOf(folder.path()), 1U);
  }));
}

TEST(ExportSession, AFolderThatIsRemovedInMidRunIsAFailure) {
  const ScratchFolder folder;
  const std::string inner = folder.makeFolder("inner");
  const auto session = sessionFor(inner + "/a.mov", [&](Asset&, int fd, const ExportControl&, std::string*) {
    std::filesystem::remove_all(inner);
    return writeText(fd, "new");
  });
  run(*session);
  EXPECT_EQ(session->status(), ExportStatus::failed);
  EXPECT_TRUE(session->error());
  EXPECT_EQ(entriesOf(folder.path()), 0U);
}

/// In a child: replaces a file of "o"s by one of "n"s while the parent kills it at some moment.
int replaceForEver(const std::string& path) {
  for (;;) {
    run(*sessionFor(path, [](Asset&, int fd, const ExportControl&, std::string*) {
      for (int i = 0; i < 64; ++i) {
        if (!writeText(fd, std::string(4096, 'n'))) return false;
      }
      return true;
    }));
  }
}

TEST(ExportSession, AKilledProcessLeavesTheOldFileOrTheNewOneWhole) {
  const int rounds = std::getenv("VISTRELLE_LONG") != nullptr ? 100 : 10;
  const ScratchFolder folder;
  const std::string path = folder.file("a.mov");
  const std::string old(1000, 'o');
  const std::string complete(64 * 4096, 'n');
  for (int round = 0; round < rounds; ++round) {
    folder.write("a.mov", old);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) std::_Exit(replaceForEver(path));
    std::this_thread::sleep_for(std::chrono::microseconds(200 + 397 * round));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    const std::string now = readFile(path);
    EXPECT_TRUE(now == old || now == complete) << "round " << round << ": " << now.size() << " bytes";
  }
}

}  // namespace
}  // namespace vistrelle::platform
