#include "vistrelle/files/queries.h"

#include <sys/stat.h>
#include <unistd.h>

#include <set>

#include "tests/files/files_fixture.h"
#include "vistrelle/platform/files/path.h"

namespace vistrelle {
namespace {

using namespace testing;
using platform::Date;
using platform::Url;
using platform::Value;

using Presence = FilesTest;

TEST_F(Presence, ofNothingIsFalse) {
  EXPECT_FALSE(testPresenceCocoa(std::nullopt));
  EXPECT_FALSE(testPresenceCocoa(""));
  EXPECT_FALSE(testPresenceCocoa(OptionalText()));
  EXPECT_TRUE(desktop->noted.empty());
}

TEST_F(Presence, ofFilesFoldersAndMissingOnes) {
  EXPECT_TRUE(testPresenceCocoa(scratch.write("a b.mov", "")));
  EXPECT_TRUE(testPresenceCocoa(scratch.path()));
  EXPECT_FALSE(testPresenceCocoa(scratch.file("missing")));
  scratch.write("people/bob/film.mov", "");
  EXPECT_TRUE(testPresenceCocoa("~/film.mov"));
}

TEST_F(Presence, ofAUrlIsFalseEvenForAnExistingFile) {
  EXPECT_FALSE(testPresenceCocoa(Value(Url{"file://" + scratch.write("a", "")})));
}

TEST_F(Presence, ofOtherObjectsGoesByTheirText) {
  EXPECT_TRUE(inChild([&] {
    ASSERT_EQ(0, ::chdir(scratch.path().c_str()));
    EXPECT_FALSE(testPresenceCocoa(Value(42)));
    scratch.write("42", "");
    EXPECT_TRUE(testPresenceCocoa(Value(42)));
  }));
}

TEST_F(Presence, ofAnUnreadableFileIsFalseButBehindALinkTrue) {
  scratch.write("a", "");
  fs::create_symlink("a", scratch.file("link"));
  fs::permissions(scratch.file("a"), fs::perms::none);
  fs::permissions(scratch.path(), fs::perms(0755));
  EXPECT_TRUE(inChild([&] {
    becomeNobody();
    EXPECT_FALSE(testPresenceCocoa(scratch.file("a")));
    EXPECT_TRUE(testPresenceCocoa(scratch.file("link")));
  }));
}

TEST_F(Presence, ofADanglingOrCircularLinkIsFalse) {
  fs::create_symlink("missing", scratch.file("dangling"));
  fs::create_symlink("circular", scratch.file("circular"));
  EXPECT_FALSE(testPresenceCocoa(scratch.file("dangling")));
  EXPECT_FALSE(testPresenceCocoa(scratch.file("circular")));
}

TEST_F(Presence, neverWaitsForAPipe) {
  ASSERT_EQ(0, ::mkfifo(scratch.file("pipe").c_str(), 0600));
  EXPECT_TRUE(testPresenceCocoa(scratch.file("pipe")));
}

TEST_F(Presence, tellsTheWorkspaceFirst) {
  testPresenceCocoa("~/missing");
  EXPECT_EQ(std::vector<std::string>{home() + "/missing"}, desktop->noted);
}

TEST_F(Presence, logsOnlyWhenVerbose) {
  const std::string file = scratch.write("a.mov", "");
  {
    RecordingLog quiet;
    testPresenceCocoa(file);
    EXPECT_TRUE(quiet.lines().empty());
  }
  RecordingLog log(true);
  testPresenceCocoa(file);
  testPresenceCocoa(scratch.file("b.mov"));
  testPresenceCocoa("");
  EXPECT_EQ((std::vector<std::string>{"pathStr             :-) 'a.mov'", "pathStr             :-( 'b.mov'"}),
            log.lines());
}

using Queries = FilesTest;

TEST_F(Queries, isDirDoesNotExpandTheTilde) {
  EXPECT_FALSE(isDirCocoa(std::nullopt));
  EXPECT_FALSE(isDirCocoa("~"));
  EXPECT_TRUE(isDirCocoa(home()));
  EXPECT_FALSE(isDirCocoa(scratch.write("a", "")));
  EXPECT_FALSE(isDirCocoa(scratch.file("missing")));
  fs::create_symlink("people", scratch.file("link"));
  EXPECT_TRUE(isDirCocoa(scratch.file("link")));
}

TEST_F(Queries, isWritableNeedsReadingAndWriting) {
  EXPECT_FALSE(isWritableCocoa(std::nullopt));
  EXPECT_FALSE(isWritableCocoa(scratch.file("missing")));
  EXPECT_FALSE(exists(scratch.file("missing")));
  EXPECT_FALSE(isWritableCocoa(scratch.path()));
  scratch.write("people/bob/a", "x");
  EXPECT_TRUE(isWritableCocoa("~/a"));
  fs::permissions(home() + "/a", fs::perms(0444));
  fs::permissions(scratch.path(), fs::perms(0755));
  EXPECT_TRUE(inChild([&] {
    becomeNobody();
    EXPECT_FALSE(isWritableCocoa(home() + "/a"));
  }));
}

TEST_F(Queries, fileNames) {
  EXPECT_EQ("", fileNameOfPath(std::nullopt));
  EXPECT_EQ("", fileBaseNameOfPath(std::nullopt));
  EXPECT_EQ("b.tar.gz", fileNameOfPath("/a/b.tar.gz"));
  EXPECT_EQ("b.tar", fileBaseNameOfPath("/a/b.tar.gz"));
  EXPECT_EQ("bob", fileNameOfPath("~"));
  EXPECT_EQ("", fileNameOfPath(""));
}

TEST_F(Queries, allPathsBelowAFolder) {
  scratch.write("tree/b/c", "");
  scratch.write("tree/a", "");
  fs::create_symlink("..", scratch.file("tree/b/loop"));
  const std::string tree = scratch.file("tree");
  const auto paths = listAllPathsCocoa(tree);
  ASSERT_TRUE(paths);
  EXPECT_EQ((std::set<std::string>{tree + "/a", tree + "/b", tree + "/b/c", tree + "/b/loop"}),
            std::set<std::string>(paths->begin(), paths->end()));
  EXPECT_EQ(4u, paths->size());
  EXPECT_EQ(tree + "//a", listAllPathsCocoa(tree + "/")->at(paths->at(0) == tree + "/a" ? 0 : 3));
  EXPECT_FALSE(listAllPathsCocoa(scratch.makeFolder("empty")));
  EXPECT_FALSE(listAllPathsCocoa(scratch.file("missing")));
  EXPECT_FALSE(listAllPathsCocoa(std::nullopt));
  scratch.write("people/bob/x", "");
  EXPECT_EQ(std::vector<std::string>{home() + "/x"}, listAllPathsCocoa("~"));
}

TEST_F(Queries, linkTargets) {
  scratch.write("people/bob/a", "");
  fs::create_symlink("a", home() + "/one");
  fs::create_symlink("one", home() + "/two");
  fs::create_symlink("nowhere", home() + "/dangling");
  EXPECT_EQ("one", symlinkDestinationCocoa("~/two"));
  EXPECT_EQ("nowhere", symlinkDestinationCocoa("~/dangling"));
  EXPECT_FALSE(symlinkDestinationCocoa("~/a"));
  EXPECT_FALSE(symlinkDestinationCocoa(std::nullopt));
  EXPECT_EQ(fs::canonical(home() + "/a").string(), resolveAliasPath("~/two"));
  EXPECT_EQ("~/a", resolveAliasPath("~/a"));
  EXPECT_EQ("~/dangling", resolveAliasPath("~/dangling"));
  EXPECT_EQ("~/missing", resolveAliasPath("~/missing"));
  EXPECT_FALSE(resolveAliasPath(std::nullopt));
}

TEST_F(Queries, modificationDate) {
  const std::string file = scratch.write("people/bob/a", "");
  const Date date(std::chrono::seconds(1'400'000'000));
  EXPECT_TRUE(setModificationDate("~/a", date));
  EXPECT_EQ(date, platform::fileManager().get()->attributes(file, true)->modificationDate);
  EXPECT_FALSE(setModificationDate(scratch.file("missing"), date));
  EXPECT_FALSE(setModificationDate(std::nullopt, date));
  EXPECT_FALSE(setModificationDate(file, std::nullopt));
}

using Opening = FilesTest;

TEST_F(Opening, folderOfAFileAndOfItself) {
  const std::string file = scratch.write("people/bob/a b.mov", "");
  RecordingLog log;
  EXPECT_TRUE(openFolderOfPath("~/a b.mov"));
  EXPECT_TRUE(openFolderOfPath(home()));
  EXPECT_EQ((std::vector<std::string>{"file://" + home() + "/", "file://" + home() + "/"}), desktop->openedUrls);
  EXPECT_EQ(2, log.count("pathStr             : " + home() + "/"));
  desktop->answer = false;
  EXPECT_FALSE(openFolderOfPath(file));
}

TEST_F(Opening, folderOfNothingIsFalse) {
  EXPECT_FALSE(openFolderOfPath(std::nullopt));
  EXPECT_FALSE(openFolderOfPath(""));
  EXPECT_FALSE(openFolderOfPath(scratch.file("missing")));
  EXPECT_TRUE(desktop->openedUrls.empty());
}

TEST_F(Opening, fileWithAnyNameOpensItsDefaultApplicationAndIsTrue) {
  const std::string file = scratch.write("a b.mov", "");
  desktop->answer = false;
  EXPECT_TRUE(openFileCocoa(file, "Some Player"));
  EXPECT_TRUE(openFileCocoa(file, std::nullopt));
  const std::string url = "file://" + scratch.path() + "/a%20b.mov";
  EXPECT_EQ((std::vector<std::string>{url, url}), desktop->openedUrls);
  EXPECT_TRUE(desktop->openedFiles.empty());
}

TEST_F(Opening, fileWithTheEmptyNameGivesTheWorkspacesAnswer) {
  const std::string file = scratch.write("people/bob/a", "");
  EXPECT_TRUE(openFileCocoa("~/a", ""));
  EXPECT_EQ(std::vector<std::string>{file + " with ''"}, desktop->openedFiles);
  desktop->answer = false;
  EXPECT_FALSE(openFileCocoa("~/a", ""));
  EXPECT_TRUE(desktop->openedUrls.empty());
}

TEST_F(Opening, fileOfNothingIsFalse) {
  EXPECT_FALSE(openFileCocoa(std::nullopt, "x"));
  EXPECT_FALSE(openFileCocoa("", ""));
  EXPECT_FALSE(openFileCocoa(scratch.file("missing"), std::nullopt));
}

TEST_F(Opening, trashIsAlwaysTrue) {
  EXPECT_TRUE(trashCocoa("~/a"));
  desktop->answer = false;
  EXPECT_TRUE(trashCocoa("/x/b/"));
  EXPECT_TRUE(trashCocoa(std::nullopt));
  EXPECT_EQ((std::vector<std::string>{home() + " a", "/x b"}), desktop->recycled);
}

}  // namespace
}  // namespace vistrelle
