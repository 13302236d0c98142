#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "tests/support/child.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/files/file_manager.h"

namespace vistrelle::platform {
namespace {

namespace fs = std::filesystem;
using testing::becomeNobody;
using testing::inChild;
using testing::ScratchFolder;

class Removal : public ::testing::Test {
 protected:
  ScratchFolder scratch{ScratchFolder::Place::memory};
  std::shared_ptr<FileManager> files = fileManager().get();
};

TEST_F(Removal, foldersGoWithAllTheyHold) {
  scratch.write("a/b/c", "");
  scratch.write("a/.hidden", "");
  ::mkfifo(scratch.file("a/pipe").c_str(), 0600);
  EXPECT_TRUE(files->remove(scratch.file("a")).ok());
  EXPECT_TRUE(fs::is_empty(scratch.path()));
  EXPECT_EQ(ENOENT, files->remove(scratch.file("a")).code());
}

TEST_F(Removal, ofALinkOnlyTheLinkGoes) {
  scratch.write("kept/file", "x");
  fs::create_symlink("kept", scratch.file("link"));
  fs::create_symlink("kept", scratch.file("slashed"));
  fs::create_symlink("missing", scratch.file("dangling"));
  scratch.makeFolder("tree");
  fs::create_symlink("../kept", scratch.file("tree/inner"));
  for (const char* path : {"link", "slashed/", "dangling", "tree"}) {
    EXPECT_TRUE(files->remove(scratch.file(path)).ok()) << path;
  }
  EXPECT_EQ("x", testing::readFile(scratch.file("kept/file")));
  EXPECT_EQ(1u, files->entries(scratch.path())->size());
}

TEST_F(Removal, dotsStandForTheFolderThatTheyName) {
  scratch.write("a/b/file", "");
  scratch.write("other/file", "");
  EXPECT_TRUE(files->remove(scratch.file("a/b/.")).ok());
  EXPECT_FALSE(files->exists(scratch.file("a/b")));
  scratch.write("a/c/file", "");
  EXPECT_TRUE(files->remove(scratch.file("a/c/..")).ok());
  EXPECT_FALSE(files->exists(scratch.file("a")));
  EXPECT_TRUE(files->exists(scratch.file("other/file")));
}

TEST_F(Removal, theRootAndNothingAreRefused) {
  EXPECT_EQ(EBUSY, files->remove("/").code());
  EXPECT_EQ(EBUSY, files->remove("//").code());
  EXPECT_EQ(ENOENT, files->remove("").code());
}

TEST_F(Removal, whatMayNotBeRemovedStaysAndSaysSo) {
  scratch.write("a/file", "");
  fs::permissions(scratch.file("a"), fs::perms(0555));
  fs::permissions(scratch.path(), fs::perms(0777));
  EXPECT_TRUE(inChild([&] {
    becomeNobody();
    EXPECT_EQ(EACCES, files->remove(scratch.file("a")).code());
    EXPECT_TRUE(files->exists(scratch.file("a/file")));
  }));
  fs::permissions(scratch.file("a"), fs::perms(0755));
}

TEST_F(Removal, anUnreadableEmptyFolderGoes) {
  fs::permissions(scratch.path(), fs::perms(0777));
  EXPECT_TRUE(inChild([&] {
    becomeNobody();
    const std::string outer = scratch.makeFolder("outer");
    ASSERT_EQ(0, ::mkdir((outer + "/closed").c_str(), 0));
    EXPECT_TRUE(files->remove(outer).ok());
    ASSERT_EQ(0, ::mkdir(outer.c_str(), 0));
    EXPECT_TRUE(files->remove(outer).ok());
  }));
}

// Somebody swaps a folder of the tree for a link to a place outside, over and over, while the tree is removed.
TEST_F(Removal, aFolderSwappedForALinkLeadsNowhere) {
  scratch.makeFolder("outside");
  for (int number = 0; number < 50; ++number) scratch.write("outside/" + std::to_string(number), "kept");
  const std::string link = scratch.file("link");
  fs::create_symlink(scratch.file("outside"), link);
  int swaps = 0;
  for (int round = 0; round < 200; ++round) {
    const std::string swapped = scratch.file("tree/swapped");
    scratch.makeFolder("tree/swapped/inner");
    for (int number = 0; number < 20; ++number) scratch.write("tree/swapped/inner/" + std::to_string(number), "");
    std::atomic<bool> done = false;
    std::thread attacker([&] {
      while (!done) {
        if (::renameat2(AT_FDCWD, swapped.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE) == 0) ++swaps;
      }
    });
    const auto result = files->remove(scratch.file("tree"));
    done = true;
    attacker.join();
    // Whatever the removal came to, nothing outside was touched.
    ASSERT_EQ(50u, files->entries(scratch.file("outside"))->size()) << "round " << round << " " << result.description();
    for (const std::string& rest : {scratch.file("tree"), link}) {
      std::error_code ignored;
      fs::remove_all(rest, ignored);
    }
    fs::create_symlink(scratch.file("outside"), link);
  }
  EXPECT_GT(swaps, 0);
}

}  // namespace
}  // namespace vistrelle::platform
