#include <sys/stat.h>
#include <unistd.h>

#include "tests/files/files_fixture.h"
#include "vistrelle/files/guarded.h"
#include "vistrelle/platform/base/random.h"

namespace vistrelle {
namespace {

using namespace testing;
using Lines = std::vector<std::string>;

unsigned modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(0, ::stat(path.c_str(), &status)) << path;
  return status.st_mode & 07777;
}

using Folders = FilesTest;

TEST_F(Folders, madeWithThoseAboveAndOpenToEverybody) {
  RecordingLog log;
  EXPECT_TRUE(mkdirCocoa("~/a/b"));
  EXPECT_EQ(0777u, modeOf(home() + "/a/b"));
  EXPECT_TRUE(mkdirCocoa("~/a/b"));
  EXPECT_FALSE(mkdirCocoa(std::nullopt));
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(home() + "/a/b", desktop->noted.back());
}

TEST_F(Folders, aFolderThatCannotBeMade) {
  const std::string file = scratch.write("file", "");
  RecordingLog log;
  EXPECT_FALSE(mkdirCocoa(file));
  EXPECT_EQ((Lines{"mkdir               :-(  '" + file + "'", "mkdir               :-(( '" + file + "'"}), log.lines());
  EXPECT_FALSE(mkdirCocoa(""));
}

TEST_F(Folders, aSecondTryWithoutPermissions) {
  WithFailures with;
  with.files->failFoldersWithPermissions = true;
  RecordingLog log(true);
  const std::string folder = scratch.file("a");
  EXPECT_TRUE(mkdirCocoa(folder));
  EXPECT_EQ((Lines{"mkdir               :    '" + folder + "'", "mkdir               :-(  '" + folder + "'",
                   "mkdir               :-)  '" + folder + "'"}),
            log.lines());
  EXPECT_TRUE(exists(folder));
}

TEST_F(Folders, twoModesOnly) {
  const std::string file = scratch.write("people/bob/a", "");
  for (const std::int64_t mode : {755, 700, 644, 0, 511, 0777, -1}) {
    fs::permissions(file, fs::perms(0600));
    EXPECT_TRUE(chmodCocoa("~/a", mode, std::nullopt));
    EXPECT_EQ(0755u, modeOf(file)) << mode;
  }
  EXPECT_TRUE(chmodCocoa(file, 777, ""));
  EXPECT_EQ(0777u, modeOf(file));
  EXPECT_FALSE(chmodCocoa(std::nullopt, 777, ""));
  EXPECT_TRUE(chmodCocoa(scratch.file("missing"), 777, ""));
}

TEST_F(Folders, noRecursion) {
  const std::string file = scratch.write("tree/a", "");
  fs::permissions(file, fs::perms(0600));
  RecordingLog log;
  EXPECT_TRUE(chmodCocoa(scratch.file("tree"), 777, "r"));
  EXPECT_TRUE(chmodCocoa(scratch.file("tree"), 777, "R"));
  EXPECT_TRUE(chmodCocoa(scratch.file("tree"), 777, "-R"));
  EXPECT_EQ(2, log.count("faudra voir comment faire de la récursivité …"));
  EXPECT_EQ(2u, log.lines().size());
  EXPECT_EQ(0777u, modeOf(scratch.file("tree")));
  EXPECT_EQ(0600u, modeOf(file));
}

/// The numbers 1, 2, 3, ...
class Counting : public platform::Random {
 public:
  std::int64_t next() override { return ++last_; }

 private:
  std::int64_t last_ = 0;
};

class Access : public FilesTest {
 protected:
  platform::Installed<platform::Random> counting{platform::randomSource(), std::make_shared<Counting>()};
};

TEST_F(Access, grantedInAFolderAndBesideAFile) {
  const std::string file = scratch.write("a", "");
  RecordingLog log;
  EXPECT_TRUE(droitsAcces(home()));
  EXPECT_TRUE(droitsAcces(file));
  EXPECT_TRUE(droitsAcces(scratch.file("missing")));
  EXPECT_EQ((Lines{"droitsAcces         ? 1 (" + home() + ")", "droitsAcces         ? 1 (" + scratch.path() + ")",
                   "droitsAcces         ? 1 (" + scratch.path() + ")"}),
            log.lines());
  EXPECT_TRUE(fs::is_empty(home()));
  EXPECT_FALSE(droitsAcces(std::nullopt));
}

TEST_F(Access, inTheHomeAndBesideARelativePath) {
  EXPECT_TRUE(inChild([&] {
    ASSERT_EQ(0, ::chdir(home().c_str()));
    RecordingLog log;
    EXPECT_TRUE(droitsAcces("~"));
    EXPECT_TRUE(droitsAcces("film.mov"));
    EXPECT_EQ((Lines{"droitsAcces         ? 1 (" + home() + ")", "droitsAcces         ? 1 ()"}), log.lines());
    EXPECT_TRUE(fs::is_empty(home()));
  }));
}

TEST_F(Access, refusedWhereNothingCanBeMade) {
  fs::permissions(scratch.path(), fs::perms(0755));
  fs::permissions(home(), fs::perms(0555));
  EXPECT_TRUE(inChild([&] {
    becomeNobody();
    RecordingLog log;
    EXPECT_FALSE(droitsAcces(home()));
    EXPECT_EQ("droitsAcces         ? 0 (" + home() + ")", log.lines().back());
  }));
}

TEST_F(Access, refusedWhereNothingCanBeRemoved) {
  WithFailures with;
  with.files->failRemove = true;
  RecordingLog log;
  EXPECT_FALSE(droitsAcces(home()));
  EXPECT_TRUE(exists(home() + "/_ZRdir1"));
}

TEST_F(Access, logsTheNameWhenVerbose) {
  RecordingLog log(true);
  EXPECT_TRUE(droitsAcces(home()));
  EXPECT_TRUE(log.has("testStr : _ZRdir1"));
}

TEST_F(Access, whatSomebodyPreparedIsNotTouched) {
  scratch.write("people/bob/_ZRdir1/kept", "x");
  scratch.makeFolder("elsewhere");
  fs::create_symlink(scratch.file("elsewhere"), home() + "/_ZRdir2");
  RecordingLog log(true);
  EXPECT_TRUE(droitsAcces(home()));
  EXPECT_TRUE(log.has("testStr : _ZRdir3"));
  EXPECT_EQ("x", readFile(home() + "/_ZRdir1/kept"));
  EXPECT_TRUE(exists(home() + "/_ZRdir2"));
  EXPECT_TRUE(exists(scratch.file("elsewhere")));
}

TEST_F(Access, theFoldersAboveAreMadeToo) {
  EXPECT_TRUE(droitsAcces(scratch.file("new/file")));
  EXPECT_TRUE(fs::is_directory(scratch.file("new")));
}

}  // namespace
}  // namespace vistrelle
