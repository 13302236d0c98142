#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <thread>

#include "tests/support/child.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/files/file_manager.h"

namespace vistrelle::platform {
namespace {

namespace fs = std::filesystem;
using testing::inChild;
using testing::readFile;
using testing::ScratchFolder;

class Writing : public ::testing::Test {
 protected:
  void onSmallVolume(const std::function<void(const std::string& other)>& body, const char* type = "tmpfs") {
    if (!testing::canMount()) GTEST_SKIP() << "a mount of one's own is not possible here";
    const std::string other = scratch.makeFolder("other");
    EXPECT_TRUE(inChild([&] {
      ASSERT_TRUE(testing::mountScratch(other.c_str(), "size=64k", type));
      body(other);
    }));
  }

  const std::string large = std::string(200'000, 'x');
  ScratchFolder scratch;
  std::shared_ptr<FileManager> files = fileManager().get();
};

TEST_F(Writing, inPlaceMakesReplacesAndCuts) {
  const std::string file = scratch.file("a");
  for (const std::string& content : {std::string("first"), large, std::string("cut"), std::string()}) {
    ASSERT_TRUE(files->writeInPlace(file, bytesOf(content)).ok());
    EXPECT_EQ(content, readFile(file));
  }
  EXPECT_EQ(1u, files->entries(scratch.path())->size());
}

TEST_F(Writing, inPlaceKeepsTheFileItself) {
  const std::string file = scratch.write("a", "old");
  ASSERT_TRUE(files->setPermissions(file, 0600).ok());
  fs::create_hard_link(file, scratch.file("same"));
  ASSERT_TRUE(files->writeInPlace(file, bytesOf("new")).ok());
  EXPECT_EQ("new", readFile(scratch.file("same")));
  EXPECT_EQ(0600u, files->attributes(file, true)->permissions);
}

TEST_F(Writing, inPlaceFollowsLinks) {
  scratch.write("a", "old");
  fs::create_symlink("a", scratch.file("link"));
  fs::create_symlink("made", scratch.file("dangling"));
  ASSERT_TRUE(files->writeInPlace(scratch.file("link"), bytesOf("new")).ok());
  ASSERT_TRUE(files->writeInPlace(scratch.file("dangling"), bytesOf("fresh")).ok());
  EXPECT_EQ("new", readFile(scratch.file("a")));
  EXPECT_EQ("fresh", readFile(scratch.file("made")));
  EXPECT_TRUE(fs::is_symlink(scratch.file("link")));
  EXPECT_TRUE(fs::is_symlink(scratch.file("dangling")));
}

TEST_F(Writing, inPlaceOnAFullVolumeLeavesTheOldFileOrNone) {
  onSmallVolume([&](const std::string& other) {
    ASSERT_TRUE(files->writeInPlace(other + "/old", bytesOf("old content")).ok());
    fs::create_symlink("behind", other + "/dangling");
    EXPECT_EQ(ENOSPC, files->writeInPlace(other + "/old", bytesOf(large)).code());
    EXPECT_EQ("old content", readFile(other + "/old"));
    EXPECT_EQ(ENOSPC, files->writeInPlace(other + "/new", bytesOf(large)).code());
    EXPECT_FALSE(files->exists(other + "/new"));
    EXPECT_EQ(ENOSPC, files->writeInPlace(other + "/dangling", bytesOf(large)).code());
    EXPECT_FALSE(files->exists(other + "/behind"));
    EXPECT_TRUE(fs::is_symlink(other + "/dangling"));
  });
}

TEST_F(Writing, inPlaceWhereNoSpaceCanBeReserved) {
  const auto body = [&](const std::string& other) {
    const std::string old = std::string(10'000, 'o');
    for (const std::string& content : {old, large, std::string("cut"), old}) {
      ASSERT_EQ(0, files->writeInPlace(other + "/old", bytesOf(content)).code());
      EXPECT_EQ(content, readFile(other + "/old"));
    }
    const rlimit limit{15'000, 15'000};
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &limit));
    EXPECT_EQ(EFBIG, files->writeInPlace(other + "/old", bytesOf(large)).code());
    EXPECT_EQ(old, readFile(other + "/old"));
    EXPECT_EQ(EFBIG, files->writeInPlace(other + "/new", bytesOf(large)).code());
    EXPECT_FALSE(files->exists(other + "/new"));
  };
  onSmallVolume(body, "ramfs");
}

TEST_F(Writing, inPlaceBeyondTheSizeLimitLeavesTheOldFileOrNone) {
  const std::string old = scratch.write("old", "old content");
  EXPECT_TRUE(inChild([&] {
    const rlimit limit{1000, 1000};
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &limit));
    EXPECT_EQ(EFBIG, files->writeInPlace(scratch.file("new"), bytesOf(large)).code());
    EXPECT_EQ(EFBIG, files->writeInPlace(old, bytesOf(large)).code());
    EXPECT_EQ(EFBIG, files->writeByReplacing(old, bytesOf(large)).code());
  }));
  EXPECT_EQ("old content", readFile(old));
  EXPECT_EQ(1u, files->entries(scratch.path())->size());
}

TEST_F(Writing, inPlaceIntoDevicesAndPipes) {
  EXPECT_TRUE(files->writeInPlace("/dev/null", bytesOf(large)).ok());
  EXPECT_EQ(ENOSPC, files->writeInPlace("/dev/full", bytesOf("x")).code());
  EXPECT_TRUE(fs::exists("/dev/full"));
  const std::string pipe = scratch.file("pipe");
  ASSERT_EQ(0, ::mkfifo(pipe.c_str(), 0600));
  EXPECT_EQ(ENXIO, files->writeInPlace(pipe, bytesOf("x")).code());  // nobody reads, and nobody waits
  const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_EQ(0, ::fcntl(reader, F_SETFL, 0));
  const int writer = ::open(pipe.c_str(), O_WRONLY);  // without one a reader that comes first is told of the end
  ASSERT_GE(writer, 0);
  std::size_t received = 0;
  std::thread reading([&] {
    std::vector<char> buffer(1000);
    for (ssize_t count = 0; received < large.size() && (count = ::read(reader, buffer.data(), buffer.size())) > 0;) {
      received += static_cast<std::size_t>(count);
    }
  });
  EXPECT_TRUE(files->writeInPlace(pipe, bytesOf(large)).ok());
  ::close(writer);
  reading.join();
  ::close(reader);
  EXPECT_EQ(large.size(), received);
}

TEST_F(Writing, whatCannotBeOpenedIsAnError) {
  EXPECT_EQ(ENOENT, files->writeInPlace(scratch.file("missing/a"), bytesOf("x")).code());
  EXPECT_EQ(EISDIR, files->writeInPlace(scratch.path(), bytesOf("x")).code());
  EXPECT_EQ(ENOENT, files->writeByReplacing(scratch.file("missing/a"), bytesOf("x")).code());
  EXPECT_EQ(EISDIR, files->writeByReplacing(scratch.path(), bytesOf("x")).code());
  EXPECT_EQ(ENOENT, files->writeInPlace("", bytesOf("x")).code());
}

TEST_F(Writing, replacingShowsTheOldOrTheNewFile) {
  const std::string file = scratch.write("a", "old");
  ASSERT_TRUE(files->setPermissions(file, 0600).ok());
  const int reader = ::open(file.c_str(), O_RDONLY);
  ASSERT_TRUE(files->writeByReplacing(file, bytesOf("new")).ok());
  char former[4] = {};
  EXPECT_EQ(3, ::read(reader, former, 3));
  ::close(reader);
  EXPECT_STREQ("old", former);
  EXPECT_EQ("new", readFile(file));
  EXPECT_EQ(0600u, files->attributes(file, true)->permissions);
  EXPECT_EQ(1u, files->entries(scratch.path())->size());
}

TEST_F(Writing, replacingKeepsLinks) {
  scratch.write("far/a", "old");
  fs::create_symlink("far/a", scratch.file("link"));
  fs::create_symlink("far/made", scratch.file("dangling"));
  ASSERT_TRUE(files->writeByReplacing(scratch.file("link"), bytesOf("new")).ok());
  ASSERT_TRUE(files->writeByReplacing(scratch.file("dangling"), bytesOf("fresh")).ok());
  EXPECT_EQ("new", readFile(scratch.file("far/a")));
  EXPECT_EQ("fresh", readFile(scratch.file("far/made")));
  EXPECT_TRUE(fs::is_symlink(scratch.file("link")));
  EXPECT_EQ(2u, files->entries(scratch.file("far"))->size());
}

TEST_F(Writing, replacingLeavesDevicesAndPipes) {
  const std::string pipe = scratch.file("pipe");
  ASSERT_EQ(0, ::mkfifo(pipe.c_str(), 0600));
  fs::create_symlink("pipe", scratch.file("link"));
  for (const char* name : {"pipe", "link"}) {
    EXPECT_EQ(ENXIO, files->writeByReplacing(scratch.file(name), bytesOf("x")).code());  // nobody reads
    EXPECT_TRUE(fs::is_fifo(pipe));
  }
  EXPECT_EQ(2u, files->entries(scratch.path())->size());
}

TEST_F(Writing, replacingOnAFullVolumeLeavesTheOldFile) {
  onSmallVolume([&](const std::string& other) {
    ASSERT_TRUE(files->writeByReplacing(other + "/old", bytesOf("old content")).ok());
    EXPECT_EQ(ENOSPC, files->writeByReplacing(other + "/old", bytesOf(large)).code());
    EXPECT_EQ("old content", readFile(other + "/old"));
    EXPECT_EQ(1u, files->entries(other)->size());
  });
}

}  // namespace
}  // namespace vistrelle::platform
