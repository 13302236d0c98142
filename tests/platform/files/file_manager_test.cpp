#include "vistrelle/platform/files/file_manager.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <set>

#include "tests/support/child.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/files/path.h"

namespace vistrelle::platform {
namespace {

namespace fs = std::filesystem;
using testing::becomeNobody;
using testing::inChild;
using testing::ScratchFolder;

class FileManagerTest : public ::testing::Test {
 protected:
  std::vector<std::string> tree(const std::string& folder) {
    std::vector<std::string> paths;
    EXPECT_TRUE(files->visitTree(folder, false, [&](const TreeItem& item) { paths.emplace_back(item.path); }).ok());
    return paths;
  }
  ScratchFolder scratch{ScratchFolder::Place::memory};
  std::shared_ptr<FileManager> files = fileManager().get();
};

TEST_F(FileManagerTest, openingNeverBlocksOnAPipeOrTerminal) {
  ASSERT_EQ(0, ::mkfifo(scratch.file("pipe").c_str(), 0600));
  EXPECT_TRUE(files->canOpenForReading(scratch.file("pipe")));
  EXPECT_TRUE(files->canOpenForUpdating(scratch.file("pipe")));
  EXPECT_FALSE(files->contents(scratch.file("pipe"), 100));
  EXPECT_TRUE(inChild([&] {
    ::setsid();
    const int controller = ::posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(controller, 0);
    ASSERT_EQ(0, ::grantpt(controller));
    ASSERT_EQ(0, ::unlockpt(controller));
    EXPECT_TRUE(files->canOpenForReading(::ptsname(controller)));
    // It did not become the controlling terminal either.
    EXPECT_LT(::open("/dev/tty", O_RDWR), 0);
  }));
}

TEST_F(FileManagerTest, foldersOpenForReadingButNotForUpdating) {
  EXPECT_TRUE(files->canOpenForReading(scratch.path()));
  EXPECT_FALSE(files->canOpenForUpdating(scratch.path()));
  EXPECT_TRUE(files->canOpenForUpdating(scratch.write("a", "")));
  EXPECT_FALSE(files->canOpenForReading(scratch.file("missing")));
}

TEST_F(FileManagerTest, aPathWithAZeroByteNamesNothing) {
  const std::string path = scratch.write("a", "kept") + std::string("\0b", 2);
  EXPECT_FALSE(files->exists(path));
  EXPECT_FALSE(files->isFolder(path));
  EXPECT_FALSE(files->canOpenForReading(path));
  EXPECT_FALSE(files->attributes(path, true));
  EXPECT_EQ(EINVAL, files->remove(path).code());
  EXPECT_EQ(EINVAL, files->move(path, scratch.file("c")).code());
  EXPECT_EQ(EINVAL, files->copy(path, scratch.file("c")).code());
  EXPECT_EQ(EINVAL, files->writeInPlace(path, bytesOf("x")).code());
  EXPECT_EQ(EINVAL, files->writeByReplacing(path, bytesOf("x")).code());
  EXPECT_EQ(EINVAL, files->makeFolder(path, std::nullopt).code());
  EXPECT_EQ(EINVAL, files->setPermissions(path, 0).code());
  EXPECT_EQ(EINVAL, files->makeSymbolicLink("x", path).code());
  EXPECT_EQ("kept", testing::readFile(scratch.file("a")));
}

TEST_F(FileManagerTest, attributesOfFilesFoldersAndLinks) {
  const std::string file = scratch.write("a", "12345");
  fs::create_symlink("a", scratch.file("link"));
  const auto attributes = files->attributes(file, true);
  ASSERT_TRUE(attributes);
  EXPECT_EQ(5, attributes->size);
  EXPECT_EQ(FileKind::regular, attributes->kind);
  EXPECT_EQ(::geteuid(), attributes->owner);
  EXPECT_EQ(FileKind::folder, files->attributes(scratch.path(), false)->kind);
  EXPECT_EQ(FileKind::symbolicLink, files->attributes(scratch.file("link"), false)->kind);
  EXPECT_TRUE(files->attributes(scratch.file("link"), true)->sameFile(*attributes));
  EXPECT_FALSE(files->attributes(scratch.file("link"), false)->sameFile(*attributes));
  EXPECT_FALSE(files->attributes(scratch.file("missing"), true));
}

TEST_F(FileManagerTest, creationDateIsTheOlderOfBirthAndModification) {
  const std::string file = scratch.write("a", "");
  const Date old = Date(std::chrono::seconds(1'000'000'000) + std::chrono::microseconds(250'000));
  ASSERT_TRUE(files->setModificationDate(file, old).ok());
  EXPECT_EQ(old, files->attributes(file, true)->modificationDate);
  EXPECT_EQ(old, files->attributes(file, true)->creationDate);
  const Date future = old + std::chrono::hours(24 * 365 * 90);
  ASSERT_TRUE(files->setModificationDate(file, future).ok());
  EXPECT_EQ(future, files->attributes(file, true)->modificationDate);
  struct statx status {};
  ASSERT_EQ(0, ::statx(AT_FDCWD, file.c_str(), 0, STATX_BTIME, &status));
  if (status.stx_mask & STATX_BTIME) {
    EXPECT_LT(files->attributes(file, true)->creationDate, future);
  }
}

TEST_F(FileManagerTest, datesBeforeTheEpoch) {
  const std::string file = scratch.write("a", "");
  const Date date = Date(std::chrono::seconds(-10) + std::chrono::microseconds(500'000));
  ASSERT_TRUE(files->setModificationDate(file, date).ok());
  EXPECT_EQ(date, files->attributes(file, true)->modificationDate);
}

TEST_F(FileManagerTest, volumeAttributes) {
  const auto volume = files->volumeAttributes(scratch.path());
  ASSERT_TRUE(volume.attributes);
  EXPECT_GE(volume.attributes->size, volume.attributes->free);
  EXPECT_GT(volume.attributes->free, 0u);
  const auto missing = files->volumeAttributes(scratch.file("missing"));
  EXPECT_FALSE(missing.attributes);
  EXPECT_EQ("No such file or directory (2): '" + scratch.file("missing") + "'", missing.result.description());
}

TEST_F(FileManagerTest, entriesAreInTheDirectorysOwnOrderWithHiddenOnes) {
  for (const char* name : {"z", ".hidden", "a", "..c", "m"}) scratch.write(name, "");
  std::vector<std::string> wanted;
  for (const auto& entry : fs::directory_iterator(scratch.path())) wanted.push_back(entry.path().filename().string());
  EXPECT_EQ(wanted, files->entries(scratch.path()));
  EXPECT_EQ(std::vector<std::string>(), files->entries(scratch.makeFolder("empty")));
  EXPECT_FALSE(files->entries(scratch.file("missing")));
  EXPECT_FALSE(files->entries(scratch.file("a")));
}

TEST_F(FileManagerTest, treeHasFoldersBeforeTheirContentAndEntersNoLink) {
  scratch.write("b/c/d", "1");
  scratch.write("b/e", "1");
  scratch.write("a", "1");
  fs::create_symlink("..", scratch.file("b/loop"));
  fs::create_symlink("missing", scratch.file("b/dangling"));
  const auto paths = tree(scratch.path());
  EXPECT_EQ((std::set<std::string>{"a", "b", "b/c", "b/c/d", "b/e", "b/loop", "b/dangling"}),
            std::set<std::string>(paths.begin(), paths.end()));
  const auto position = [&](const char* path) { return std::find(paths.begin(), paths.end(), path) - paths.begin(); };
  EXPECT_LT(position("b"), position("b/c"));
  EXPECT_EQ(position("b/c") + 1, position("b/c/d"));
}

TEST_F(FileManagerTest, treeRootMayBeALink) {
  scratch.write("real/a", "");
  fs::create_symlink("real", scratch.file("link"));
  EXPECT_EQ(std::vector<std::string>{"a"}, tree(scratch.file("link")));
  EXPECT_EQ(ENOENT, files->visitTree(scratch.file("missing"), false, [](const TreeItem&) {}).code());
}

TEST_F(FileManagerTest, treeSizesAreTheEntriesOwn) {
  scratch.write("a", "12345");
  fs::create_symlink("a-long-target", scratch.file("link"));
  std::int64_t total = 0;
  ASSERT_TRUE(files->visitTree(scratch.path(), true, [&](const TreeItem& item) { total += item.size; }).ok());
  EXPECT_EQ(5 + 13, total);
}

TEST_F(FileManagerTest, unreadableFoldersAreItemsWithoutContent) {
  scratch.write("closed/inner", "");
  scratch.write("open/inner", "");
  fs::permissions(scratch.file("closed"), fs::perms::none);
  fs::permissions(scratch.path(), fs::perms(0755));
  EXPECT_TRUE(inChild([&] {
    becomeNobody();
    const auto paths = tree(scratch.path());
    EXPECT_EQ((std::set<std::string>{"closed", "open", "open/inner"}),
              std::set<std::string>(paths.begin(), paths.end()));
  }));
  fs::permissions(scratch.file("closed"), fs::perms(0700));
}

/// A chain of folders deeper than a process may have open files, and longer than a path may be.
std::string makeDeepTree(const std::string& root, int depth) {
  int folder = ::open(root.c_str(), O_RDONLY | O_DIRECTORY);
  for (int level = 0; level < depth; ++level) {
    EXPECT_EQ(0, ::mkdirat(folder, "level", 0777));
    const int inner = ::openat(folder, "level", O_RDONLY | O_DIRECTORY);
    ::close(folder);
    folder = inner;
  }
  ::close(::openat(folder, "file", O_WRONLY | O_CREAT, 0666));
  ::close(folder);
  return root + "/level";
}

TEST_F(FileManagerTest, deepTreesAreListedCopiedAndRemoved) {
  constexpr int depth = 3000;
  const std::string root = makeDeepTree(scratch.path(), depth);
  EXPECT_EQ(static_cast<std::size_t>(depth), tree(root).size());
  ASSERT_TRUE(files->copy(root, scratch.file("copy")).ok());
  EXPECT_EQ(static_cast<std::size_t>(depth), tree(scratch.file("copy")).size());
  EXPECT_TRUE(files->remove(root).ok());
  EXPECT_TRUE(files->remove(scratch.file("copy")).ok());
  EXPECT_TRUE(fs::is_empty(scratch.path()));
}

TEST_F(FileManagerTest, contentsUpToALimit) {
  const std::string file = scratch.write("a", "12345");
  const auto data = files->contents(file, 5);
  ASSERT_TRUE(data);
  EXPECT_EQ(5u, data->size());
  EXPECT_FALSE(files->contents(file, 4));
  EXPECT_FALSE(files->contents(scratch.path(), 100));
  EXPECT_TRUE(files->contents("/proc/self/status", 1 << 20)->size() > 100);  // its size reads 0
}

TEST_F(FileManagerTest, linkTargets) {
  scratch.write("a", "");
  fs::create_symlink("a", scratch.file("one"));
  fs::create_symlink("one", scratch.file("two"));
  EXPECT_EQ("one", files->linkDestination(scratch.file("two")));
  EXPECT_EQ(fs::canonical(scratch.file("a")).string(), files->resolvedPath(scratch.file("two")));
  EXPECT_FALSE(files->linkDestination(scratch.file("a")));
  EXPECT_FALSE(files->resolvedPath(scratch.file("missing")));
}

TEST_F(FileManagerTest, makeFolder) {
  const mode_t former = ::umask(022);
  ASSERT_TRUE(files->makeFolder(scratch.file("a/b/c"), 0777).ok());
  EXPECT_EQ(0777u, files->attributes(scratch.file("a/b/c"), true)->permissions);
  EXPECT_EQ(0755u, files->attributes(scratch.file("a/b"), true)->permissions);
  EXPECT_TRUE(files->makeFolder(scratch.file("a/b"), 0777).ok());
  EXPECT_EQ(0755u, files->attributes(scratch.file("a/b"), true)->permissions);  // one that exists stays as it is
  ASSERT_TRUE(files->makeFolder(scratch.file("d/"), std::nullopt).ok());
  EXPECT_EQ(0755u, files->attributes(scratch.file("d"), true)->permissions);
  scratch.write("file", "");
  EXPECT_EQ(EEXIST, files->makeFolder(scratch.file("file"), 0777).code());
  EXPECT_EQ(ENOTDIR, files->makeFolder(scratch.file("file/x"), 0777).code());
  EXPECT_EQ(ENOENT, files->makeFolder("", 0777).code());
  EXPECT_EQ(EEXIST, files->makeNewFolder(scratch.file("d")).code());
  EXPECT_TRUE(files->makeNewFolder(scratch.file("e")).ok());
  ::umask(former);
}

TEST_F(FileManagerTest, aPathOfAMillionFoldersIsTooLong) {
  std::string path = scratch.path();
  for (int level = 0; level < 1'000'000; ++level) path += "/a";
  EXPECT_EQ(ENAMETOOLONG, files->makeFolder(path, 0777).code());
  EXPECT_TRUE(fs::is_empty(scratch.path()));
  EXPECT_EQ(path, standardizedPath(path));
}

TEST_F(FileManagerTest, permissionsAndLinks) {
  const std::string file = scratch.write("a", "");
  ASSERT_TRUE(files->setPermissions(file, 0640).ok());
  EXPECT_EQ(0640u, files->attributes(file, true)->permissions);
  EXPECT_EQ(ENOENT, files->setPermissions(scratch.file("missing"), 0640).code());
  ASSERT_TRUE(files->makeSymbolicLink("a", scratch.file("link")).ok());
  EXPECT_EQ("a", files->linkDestination(scratch.file("link")));
  EXPECT_EQ(EEXIST, files->makeSymbolicLink("a", scratch.file("link")).code());
}

TEST_F(FileManagerTest, oneHundredThousandEntries) {
  scratch.makeFolder("many");
  const int folder = ::open(scratch.file("many").c_str(), O_RDONLY | O_DIRECTORY);
  for (int number = 0; number < 100'000; ++number) {
    ASSERT_EQ(0, ::mknodat(folder, std::to_string(number).c_str(), S_IFREG | 0600, 0));
  }
  ::close(folder);
  EXPECT_EQ(100'000u, files->entries(scratch.file("many"))->size());
  EXPECT_EQ(100'001u, tree(scratch.path()).size());
  EXPECT_TRUE(files->remove(scratch.file("many")).ok());
  EXPECT_FALSE(files->exists(scratch.file("many")));
}

TEST_F(FileManagerTest, aWrapperPassesEverythingOn) {
  ForwardingFileManager forwarding(files);
  const std::string file = scratch.file("a");
  EXPECT_TRUE(forwarding.writeInPlace(file, bytesOf("x")).ok());
  EXPECT_TRUE(forwarding.writeByReplacing(file, bytesOf("xy")).ok());
  EXPECT_TRUE(forwarding.exists(file));
  EXPECT_TRUE(forwarding.canOpenForReading(file));
  EXPECT_TRUE(forwarding.canOpenForUpdating(file));
  EXPECT_FALSE(forwarding.isFolder(file));
  EXPECT_EQ(2, forwarding.attributes(file, true)->size);
  EXPECT_TRUE(forwarding.volumeAttributes(file).attributes);
  EXPECT_TRUE(forwarding.makeSymbolicLink(file, file + "-link").ok());
  EXPECT_EQ(file, forwarding.linkDestination(file + "-link"));
  EXPECT_TRUE(forwarding.resolvedPath(file + "-link"));
  EXPECT_EQ(2u, forwarding.contents(file, 10)->size());
  EXPECT_TRUE(forwarding.copy(file, file + "-copy").ok());
  EXPECT_TRUE(forwarding.move(file, file + "-moved").ok());
  EXPECT_EQ(3u, forwarding.entries(scratch.path())->size());
  int visited = 0;
  EXPECT_TRUE(forwarding.visitTree(scratch.path(), false, [&](const TreeItem&) { ++visited; }).ok());
  EXPECT_EQ(3, visited);
  EXPECT_TRUE(forwarding.makeFolder(scratch.file("f/g"), std::nullopt).ok());
  EXPECT_TRUE(forwarding.makeNewFolder(scratch.file("n")).ok());
  EXPECT_TRUE(forwarding.setPermissions(scratch.file("n"), 0700).ok());
  EXPECT_TRUE(forwarding.setModificationDate(scratch.file("n"), Date()).ok());
  EXPECT_TRUE(forwarding.remove(scratch.file("n")).ok());
}

}  // namespace
}  // namespace vistrelle::platform
