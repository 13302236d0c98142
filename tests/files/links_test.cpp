#include <sys/stat.h>
#include <unistd.h>

#include "tests/files/files_fixture.h"
#include "vistrelle/files/guarded.h"

namespace vistrelle {
namespace {

using namespace testing;
using Lines = std::vector<std::string>;

using Links = FilesTest;

TEST_F(Links, hold) {
  RecordingLog log;
  EXPECT_TRUE(ln_sCocoa("~/a", "~/link"));
  EXPECT_EQ(home() + "/a", fs::read_symlink(home() + "/link"));
  EXPECT_TRUE(ln_sCocoa("relative", "~/other"));
  EXPECT_EQ("relative", fs::read_symlink(home() + "/other"));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Links, withoutAnEnd) {
  RecordingLog log;
  EXPECT_FALSE(ln_sCocoa(std::nullopt, "/b"));
  EXPECT_FALSE(ln_sCocoa("/a", std::nullopt));
  EXPECT_EQ((Lines{"ln_sCocoa           :-/ no input | output ('nil' | '/b')",
                   "ln_sCocoa           :-/ no input | output ('/a' | 'nil')"}),
            log.lines());
}

TEST_F(Links, toThemselvesAreRefused) {
  RecordingLog log;
  EXPECT_FALSE(ln_sCocoa(scratch.file("a"), scratch.file("A")));
  EXPECT_FALSE(ln_sCocoa("~/É", home() + "/é"));
  EXPECT_EQ(2, log.count("ln_sCocoa           :-/ identical input & output"));
}

TEST_F(Links, whereSomethingIs) {
  const std::string taken = scratch.write("taken", "");
  RecordingLog log;
  EXPECT_FALSE(ln_sCocoa("/a", taken));
  EXPECT_EQ(Lines{"ln :-( File exists (17): '" + taken + "'"}, log.lines());
}

class ToolPath : public FilesTest {
 protected:
  const std::string movie = scratch.write("people/bob/Mon film é.mov", "movie");
  const std::string temporary = scratch.file("private-tmp");
};

TEST_F(ToolPath, isALinkWithAHarmlessNameInTheTemporaryFolder) {
  RecordingLog log(true);
  EXPECT_EQ(temporary + "/Monfilm.mov", toolPathSafe(movie, std::nullopt));
  EXPECT_EQ("movie", readFile(temporary + "/Monfilm.mov"));
  EXPECT_TRUE(log.has("toolPathSa… new name: 'Monfilm.mov'"));
  EXPECT_TRUE(log.has("toolPathSafe symlink:-) rm (" + temporary + "/Monfilm.mov)"));
  EXPECT_EQ(fs::perms(0700), fs::status(temporary).permissions());
}

TEST_F(ToolPath, keepsTheNineSigns) {
  EXPECT_EQ(temporary + "/aZ09.,;'()-_b", toolPathSafe("/d/aZ09.,;'()-_ $&*\"`\\b", std::nullopt));
}

TEST_F(ToolPath, linksToTheExpandedPath) {
  EXPECT_EQ(temporary + "/Monfilm.mov", toolPathSafe("~/Mon film é.mov", std::nullopt));
  EXPECT_EQ(movie, fs::read_symlink(temporary + "/Monfilm.mov"));
}

TEST_F(ToolPath, inAGivenFolderThatExists) {
  const std::string folder = scratch.makeFolder("people/bob/links");
  EXPECT_EQ(folder + "/Monfilm.mov", toolPathSafe(movie, "~/links"));
  EXPECT_EQ(temporary + "/Monfilm.mov", toolPathSafe(movie, scratch.file("missing")));
}

TEST_F(ToolPath, thatIsSafeAlreadyComesBack) {
  const std::string safe = scratch.write("people/bob/a.mov", "");
  RecordingLog log;
  EXPECT_EQ(safe, toolPathSafe(safe, home()));
  EXPECT_EQ(home() + "/A.MOV", toolPathSafe(home() + "/A.MOV", home()));
  EXPECT_TRUE(log.lines().empty());
  EXPECT_TRUE(fs::is_regular_file(safe));
}

TEST_F(ToolPath, withoutAHarmlessCharacterComesBack) {
  EXPECT_EQ("/d/éàü", toolPathSafe("/d/éàü", std::nullopt));
  EXPECT_EQ("", toolPathSafe("", std::nullopt));
  EXPECT_FALSE(toolPathSafe(std::nullopt, std::nullopt));
  EXPECT_EQ("/d/é..", toolPathSafe("/d/é..", std::nullopt));  // would be the folder above
  EXPECT_FALSE(exists(temporary));
}

TEST_F(ToolPath, replacesAnOldCandidateInTheTemporaryFolder) {
  scratch.write("private-tmp/Monfilm.mov", "old");
  fs::permissions(temporary, fs::perms(0700));
  RecordingLog log;
  EXPECT_EQ(temporary + "/Monfilm.mov", toolPathSafe(movie, std::nullopt));
  EXPECT_EQ(Lines{"toolPathSafe symlink:-) rm (" + temporary + "/Monfilm.mov)"}, log.lines());
  EXPECT_EQ(temporary + "/Monfilm.mov", toolPathSafe(movie, std::nullopt));
  EXPECT_EQ(movie, fs::read_symlink(temporary + "/Monfilm.mov"));
}

TEST_F(ToolPath, neverRemovesTheFileItself) {
  const std::string file = scratch.write("private-tmp/a.mov", "kept");
  const std::string inner = scratch.write("private-tmp/b.mov/b.mov", "kept too");
  fs::permissions(temporary, fs::perms(0700));
  EXPECT_EQ(file, toolPathSafe(temporary + "/./a.mov", std::nullopt));
  EXPECT_EQ("kept", readFile(file));
  tmpFolderSet(home());
  EXPECT_EQ(home() + "/c.mov",
            toolPathSafe(scratch.write("people/bob/c.mov", "kept").replace(0, home().size(), "~"), std::nullopt));
  EXPECT_TRUE(fs::is_regular_file(home() + "/c.mov"));
  tmpFolderSet(temporary);
  RecordingLog log;
  EXPECT_EQ(inner, toolPathSafe(inner, std::nullopt));
  EXPECT_EQ("kept too", readFile(inner));
  EXPECT_TRUE(log.has("toolPathSafe symlink:-( rm (" + temporary + "/b.mov)"));
}

TEST_F(ToolPath, elsewhereReplacesOnlyALinkOfThisUser) {
  const std::string folder = scratch.makeFolder("links");
  const std::string candidate = folder + "/Monfilm.mov";
  fs::create_symlink("missing", candidate);
  EXPECT_EQ(candidate, toolPathSafe(movie, folder));
  EXPECT_EQ(movie, fs::read_symlink(candidate));
  fs::remove(candidate);
  scratch.write("links/Monfilm.mov", "somebody's own");
  RecordingLog log;
  EXPECT_EQ(movie, toolPathSafe(movie, folder));
  EXPECT_EQ((Lines{"toolPathSafe symlink:-( rm (" + candidate + ")", "ln :-( File exists (17): '" + candidate + "'",
                   "toolPathSafe symlink:-( ln ('" + movie + "' -> '" + candidate + "')"}),
            log.lines());
  EXPECT_EQ("somebody's own", readFile(candidate));
}

TEST_F(ToolPath, refusesALinkThatAnotherUserPrepared) {
  if (!isAdministrator()) GTEST_SKIP() << "a link of another user needs the administrator";
  scratch.makeFolder("victim");
  fs::create_directory(temporary);
  fs::permissions(temporary, fs::perms(01777));
  const std::string candidate = temporary + "/Monfilm.mov";
  fs::create_symlink(scratch.file("victim"), candidate);
  ASSERT_EQ(0, ::lchown(candidate.c_str(), 65534, 65534));
  for (const OptionalText& folder : {OptionalText(), OptionalText(temporary)}) {
    RecordingLog log;
    EXPECT_EQ(movie, toolPathSafe(movie, folder));
    EXPECT_TRUE(log.has("toolPathSafe symlink:-( rm (" + candidate + ")"));
    EXPECT_TRUE(exists(candidate));
    EXPECT_TRUE(fs::is_empty(scratch.file("victim")));
  }
}

TEST_F(ToolPath, comesBackWhereNoLinkCanBeMade) {
  WithFailures with;
  with.files->failLinks = true;
  RecordingLog log;
  EXPECT_EQ(movie, toolPathSafe(movie, std::nullopt));
  EXPECT_EQ("toolPathSafe symlink:-( ln ('" + movie + "' -> '" + temporary + "/Monfilm.mov')", log.lines().back());
}

TEST_F(ToolPath, comesBackWithoutATemporaryFolder) {
  tmpFolderSet(scratch.write("file", "") + "/below");
  RecordingLog log;
  EXPECT_EQ(movie, toolPathSafe(movie, std::nullopt));
  EXPECT_EQ(1u, log.lines().size());
}

}  // namespace
}  // namespace vistrelle
