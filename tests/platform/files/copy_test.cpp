#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "tests/support/child.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/files/file_manager.h"

namespace vistrelle::platform {
namespace {

namespace fs = std::filesystem;
using testing::canMount;
using testing::inChild;
using testing::mountScratch;
using testing::readFile;
using testing::ScratchFolder;

const Date someDate = Date(std::chrono::seconds(1'234'567'890) + std::chrono::microseconds(125));

class Copying : public ::testing::Test {
 protected:
  /// A folder with a file, links, a pipe and a closed folder, each with its own mode and an old date.
  std::string makeTree(const std::string& name) {
    const std::string root = scratch.makeFolder(name);
    scratch.write(name + "/file", "content");
    scratch.write(name + "/inner/other", std::string(100'000, 'x'));
    fs::create_symlink("file", root + "/link");
    fs::create_symlink("/missing", root + "/dangling");
    EXPECT_EQ(0, ::mkfifo((root + "/pipe").c_str(), 0600));
    EXPECT_TRUE(files->setPermissions(root + "/file", 0640).ok());
    EXPECT_TRUE(files->setPermissions(root + "/pipe", 0622).ok());
    EXPECT_TRUE(files->setPermissions(root + "/inner", 0555).ok());
    for (const char* item : {"/file", "/inner", ""})
      EXPECT_TRUE(files->setModificationDate(root + item, someDate).ok());
    return root;
  }

  void expectTree(const std::string& root) {
    EXPECT_EQ("content", readFile(root + "/file"));
    EXPECT_EQ(std::string(100'000, 'x'), readFile(root + "/inner/other"));
    EXPECT_EQ("file", files->linkDestination(root + "/link"));
    EXPECT_EQ("/missing", files->linkDestination(root + "/dangling"));
    EXPECT_EQ(0640u, files->attributes(root + "/file", false)->permissions);
    EXPECT_EQ(0622u, files->attributes(root + "/pipe", false)->permissions);
    EXPECT_EQ(0555u, files->attributes(root + "/inner", false)->permissions);
    struct stat pipe {};
    EXPECT_EQ(0, ::stat((root + "/pipe").c_str(), &pipe));
    EXPECT_TRUE(S_ISFIFO(pipe.st_mode));
    for (const char* item : {"/file", "/inner", ""}) {
      EXPECT_EQ(someDate, files->attributes(root + item, false)->modificationDate) << item;
    }
    EXPECT_EQ(5u, files->entries(root)->size());
  }

  /// Runs with a tmpfs of the size at scratch/other.
  void onAnotherVolume(const char* options, const std::function<void(const std::string& other)>& body) {
    if (!canMount()) GTEST_SKIP() << "a mount of one's own is not possible here";
    const std::string other = scratch.makeFolder("other");
    EXPECT_TRUE(inChild([&] {
      ASSERT_TRUE(mountScratch(other.c_str(), options));
      body(other);
    }));
  }

  ScratchFolder scratch;
  std::shared_ptr<FileManager> files = fileManager().get();
};

TEST_F(Copying, foldersKeepLinksModesAndTimes) {
  const std::string tree = makeTree("tree");
  ASSERT_TRUE(files->copy(tree, scratch.file("copy")).ok());
  expectTree(scratch.file("copy"));
  expectTree(tree);
  EXPECT_EQ(2u, files->entries(scratch.path())->size());
}

TEST_F(Copying, ofALinkTheLinkIsCopied) {
  scratch.write("a", "x");
  fs::create_symlink("a", scratch.file("link"));
  ASSERT_TRUE(files->copy(scratch.file("link"), scratch.file("copy")).ok());
  EXPECT_EQ("a", files->linkDestination(scratch.file("copy")));
}

TEST_F(Copying, nothingIsReplaced) {
  scratch.write("a", "a");
  scratch.write("b", "b");
  fs::create_symlink("missing", scratch.file("dangling"));
  for (const char* taken : {"b", "dangling"}) {
    EXPECT_EQ(EEXIST, files->copy(scratch.file("a"), scratch.file(taken)).code());
    EXPECT_EQ(EEXIST, files->move(scratch.file("a"), scratch.file(taken)).code());
  }
  EXPECT_EQ("a", readFile(scratch.file("a")));
  EXPECT_EQ("b", readFile(scratch.file("b")));
  EXPECT_EQ(3u, files->entries(scratch.path())->size());
}

TEST_F(Copying, aFolderNeverGoesIntoItself) {
  scratch.write("a/b/file", "");
  EXPECT_EQ(EINVAL, files->copy(scratch.file("a"), scratch.file("a/b/c")).code());
  EXPECT_EQ(EINVAL, files->move(scratch.file("a"), scratch.file("a/b/c")).code());
  EXPECT_EQ(1u, files->entries(scratch.file("a/b"))->size());
}

TEST_F(Copying, missingEndsAreErrors) {
  scratch.write("a", "");
  EXPECT_EQ(ENOENT, files->copy(scratch.file("missing"), scratch.file("b")).code());
  EXPECT_EQ(ENOENT, files->copy(scratch.file("a"), scratch.file("missing/b")).code());
  EXPECT_EQ(ENOENT, files->move(scratch.file("missing"), scratch.file("b")).code());
  EXPECT_EQ(ENOENT, files->move(scratch.file("a"), scratch.file("missing/b")).code());
}

TEST_F(Copying, rightsOfAnotherOwnerAreNotLent) {
  const std::string file = scratch.write("a", "");
  ASSERT_TRUE(files->setPermissions(file, 04755).ok());
  ASSERT_TRUE(files->copy(file, scratch.file("b")).ok());
  EXPECT_EQ(0755u, files->attributes(scratch.file("b"), true)->permissions);
}

TEST_F(Copying, anUnreadablePartLeavesNoCopy) {
  scratch.write("a/inner/file", "");
  fs::permissions(scratch.file("a/inner"), fs::perms::none);
  fs::permissions(scratch.path(), fs::perms(0777));
  EXPECT_TRUE(inChild([&] {
    testing::becomeNobody();
    EXPECT_EQ(EACCES, files->copy(scratch.file("a"), scratch.file("b")).code());
    EXPECT_EQ(1u, files->entries(scratch.path())->size());
  }));
  fs::permissions(scratch.file("a/inner"), fs::perms(0700));
}

TEST_F(Copying, filesThatOnlyLookEmptyAreReadToTheirEnd) {
  ASSERT_TRUE(files->copy("/proc/self/status", scratch.file("status")).ok());
  EXPECT_GT(readFile(scratch.file("status")).size(), 100u);
}

TEST_F(Copying, movingWithinAVolumeRenames) {
  const std::string tree = makeTree("tree");
  const auto before = files->attributes(tree, false);
  ASSERT_TRUE(files->move(tree, scratch.file("moved")).ok());
  EXPECT_TRUE(before->sameFile(*files->attributes(scratch.file("moved"), false)));
  EXPECT_FALSE(files->exists(tree));
}

TEST_F(Copying, movingAcrossVolumesKeepsEverything) {
  onAnotherVolume("size=4m", [&](const std::string& other) {
    const std::string tree = makeTree("tree");
    ASSERT_EQ(0, ::chown((tree + "/file").c_str(), 1234, 4321));
    ASSERT_TRUE(files->setPermissions(tree + "/file", 04640).ok());
    ASSERT_TRUE(files->setModificationDate(tree, someDate).ok());
    ASSERT_TRUE(files->move(tree, other + "/moved").ok());
    EXPECT_EQ(04640u, files->attributes(other + "/moved/file", false)->permissions);
    EXPECT_EQ(1234u, files->attributes(other + "/moved/file", false)->owner);
    ASSERT_TRUE(files->setPermissions(other + "/moved/file", 0640).ok());
    expectTree(other + "/moved");
    EXPECT_FALSE(files->attributes(tree, false));
    EXPECT_EQ(1u, files->entries(other)->size());
    scratch.write("file", "x");
    ASSERT_TRUE(files->move(scratch.file("file"), other + "/file").ok());
    EXPECT_EQ("x", readFile(other + "/file"));
    EXPECT_FALSE(files->exists(scratch.file("file")));
    // The volume itself does not move.
    EXPECT_EQ(EBUSY, files->move(other, scratch.file("elsewhere")).code());
  });
}

TEST_F(Copying, aFullVolumeKeepsTheSource) {
  onAnotherVolume("size=64k", [&](const std::string& other) {
    const std::string tree = makeTree("tree");
    const std::string file = scratch.write("large", std::string(200'000, 'y'));
    EXPECT_EQ(ENOSPC, files->move(file, other + "/large").code());
    EXPECT_EQ(ENOSPC, files->move(tree, other + "/tree").code());
    EXPECT_EQ(ENOSPC, files->copy(file, other + "/large").code());
    EXPECT_EQ(std::string(200'000, 'y'), readFile(file));
    expectTree(tree);
    EXPECT_TRUE(files->entries(other)->empty());
  });
}

}  // namespace
}  // namespace vistrelle::platform
