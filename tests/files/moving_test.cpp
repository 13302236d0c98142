#include <sys/stat.h>
#include <unistd.h>

#include "tests/files/files_fixture.h"
#include "vistrelle/files/guarded.h"
#include "vistrelle/platform/files/path.h"

namespace vistrelle {
namespace {

using namespace testing;
using Lines = std::vector<std::string>;

class Moving : public FilesTest {
 protected:
  const std::string a = scratch.write("people/bob/a", "a");
  const std::string b = scratch.file("people/bob/b");
};

TEST_F(Moving, aFileToANewName) {
  RecordingLog log;
  EXPECT_TRUE(mv("~/a", "~/b", std::nullopt));
  EXPECT_FALSE(exists(a));
  EXPECT_EQ("a", readFile(b));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Moving, onlyTheSmallYReplaces) {
  scratch.write("people/bob/b", "b");
  for (const OptionalText& overwrite : {OptionalText(), OptionalText(""), OptionalText("Y"), OptionalText("-y"),
                                        OptionalText("yes"), OptionalText(" y")}) {
    RecordingLog log;
    EXPECT_FALSE(mv(a, b, overwrite));
    EXPECT_EQ(Lines{"mv New already exist:-( '" + b + "'"}, log.lines());
    EXPECT_FALSE(cpCocoa(a, b, overwrite));
  }
  EXPECT_EQ("b", readFile(b));
  EXPECT_TRUE(cpCocoa(a, b, "y"));
  EXPECT_EQ("a", readFile(b));
  scratch.write("people/bob/b", "b");
  EXPECT_TRUE(mv(a, b, "y"));
  EXPECT_EQ("a", readFile(b));
}

TEST_F(Moving, withoutAnEndIsFalse) {
  EXPECT_FALSE(mv(std::nullopt, b, "y"));
  EXPECT_FALSE(mv(a, std::nullopt, "y"));
  EXPECT_FALSE(cpCocoa(std::nullopt, b, "y"));
  EXPECT_FALSE(cpCocoa(a, std::nullopt, "y"));
  EXPECT_FALSE(mv(a, "", "y"));
  EXPECT_FALSE(cpCocoa(a, "", "y"));
  EXPECT_FALSE(mv("", b, "y"));
  EXPECT_TRUE(exists(a));
}

TEST_F(Moving, anAbsentSource) {
  scratch.write("people/bob/b", "b");
  RecordingLog log;
  EXPECT_FALSE(mv("~/missing", b, "y"));
  EXPECT_FALSE(cpCocoa("~/missing", b, "y"));
  EXPECT_EQ((Lines{"mv File current     :-( does not exist: '" + home() + "/missing'",
                   "File current        :-( does not exist: " + home() + "/missing"}),
            log.lines());
  EXPECT_EQ("b", readFile(b));
}

TEST_F(Moving, aDestinationThatStaysEndsTheMoveButNotTheCopy) {
  scratch.write("people/bob/b", "b");
  WithFailures with;
  with.files->failRemove = true;
  RecordingLog log;
  EXPECT_FALSE(mv(a, b, "y"));
  EXPECT_EQ("mv New deleted first:-( '" + b + "'", log.lines().back());
  EXPECT_FALSE(cpCocoa(a, b, "y"));
  EXPECT_EQ("b", readFile(b));
  EXPECT_EQ("a", readFile(a));
}

TEST_F(Moving, aMoveThatFails) {
  WithFailures with;
  with.files->failMove = true;
  RecordingLog log;
  EXPECT_FALSE(mv(a, b, "y"));
  EXPECT_EQ((Lines{"mv File moved       :-( '" + b + "', err…", "Input/output error (5): '" + b + "'"}), log.lines());
}

TEST_F(Moving, aCopyThatFails) {
  WithFailures with;
  with.files->failCopy = true;
  RecordingLog log(true);
  EXPECT_FALSE(cpCocoa(a, b, "y"));
  EXPECT_EQ("File copied         :-( " + b, log.lines().back());
}

TEST_F(Moving, logLines) {
  scratch.write("people/bob/b", "b");
  RecordingLog log(true);
  EXPECT_FALSE(cpCocoa(a, b, "n"));
  EXPECT_EQ("File current        : " + a, log.lines()[0]);
  EXPECT_EQ("File new            : " + b, log.lines()[1]);
  EXPECT_EQ("New already exists  :-( " + b, log.lines().back());
  log.clear();
  EXPECT_TRUE(cpCocoa("~/a", "~/b", "y"));
  EXPECT_TRUE(log.has("New deleted first   :-) " + b));
  EXPECT_EQ("File copied         :-) " + b, log.lines().back());
  EXPECT_EQ(b, desktop->noted.back());
  log.clear();
  EXPECT_TRUE(mv("~/a", "~/b", "y"));
  EXPECT_EQ("mv File current->new: '" + a + "' -> '" + b + "'", log.lines().front());
  EXPECT_TRUE(log.has("mv New deleted first:-) '" + b + "'"));
  EXPECT_TRUE(log.has("mv File moved       :-) '" + b + "'"));
}

TEST_F(Moving, theSameFileIsRefusedBeforeAnythingGoes) {
  fs::create_hard_link(a, b);
  fs::create_symlink("a", home() + "/link");
  fs::create_symlink("..", home() + "/up");
  for (const std::string& same : {a, b, home() + "/link", home() + "/./a", home() + "//a", home() + "/up/bob/a"}) {
    RecordingLog log;
    EXPECT_FALSE(mv(a, same, "y")) << same;
    EXPECT_FALSE(cpCocoa(a, same, "y")) << same;
    EXPECT_EQ((Lines{"mv New overlaps File:-( '" + same + "'", "New overlaps current:-( " + same}), log.lines());
    EXPECT_EQ("a", readFile(a));
    EXPECT_TRUE(exists(same));
  }
  RecordingLog log;
  EXPECT_FALSE(mv(home() + "/link", a, "y"));
  EXPECT_FALSE(cpCocoa(home() + "/link", a, "y"));
  EXPECT_EQ("a", readFile(a));
}

TEST_F(Moving, oneInsideTheOtherIsRefusedBeforeAnythingGoes) {
  const std::string inner = scratch.write("outer/inner/file", "x");
  for (const auto& [source, destination] :
       {std::pair(scratch.file("outer/inner"), scratch.file("outer")), std::pair(inner, scratch.file("outer")),
        std::pair(scratch.file("outer"), scratch.file("outer/inner"))}) {
    EXPECT_FALSE(mv(source, destination, "y"));
    EXPECT_FALSE(cpCocoa(source, destination, "y"));
  }
  EXPECT_FALSE(cpCocoa(scratch.file("outer"), scratch.file("outer/new"), "y"));
  EXPECT_EQ("x", readFile(inner));
  // A link inside the destination goes with it, wherever it leads.
  fs::create_symlink(a, scratch.file("outer/link"));
  EXPECT_FALSE(mv(scratch.file("outer/link"), scratch.file("outer"), "y"));
  EXPECT_FALSE(cpCocoa(scratch.file("outer/link"), scratch.file("outer"), "y"));
  EXPECT_TRUE(fs::is_symlink(scratch.file("outer/link")));
}

TEST_F(Moving, aLinkToTheFolderOfTheSourceIsReplaced) {
  const std::string source = scratch.write("outer/file", "x");
  const std::string link = scratch.file("link");
  fs::create_symlink("outer", link);
  EXPECT_TRUE(cpCocoa(source, link, "y"));
  EXPECT_EQ("x", readFile(link));
  fs::remove(link);
  fs::create_symlink("outer", link);
  EXPECT_TRUE(mv(source, link, "y"));
  EXPECT_FALSE(fs::is_symlink(link));
  EXPECT_EQ("x", readFile(link));
  EXPECT_TRUE(fs::is_empty(scratch.file("outer")));
}

TEST_F(Moving, aLinkThatIsReplacedLeavesItsTarget) {
  scratch.write("other", "other");
  fs::create_symlink("other", scratch.file("link"));
  EXPECT_TRUE(mv(a, scratch.file("link"), "y"));
  EXPECT_FALSE(fs::is_symlink(scratch.file("link")));
  EXPECT_EQ("a", readFile(scratch.file("link")));
  EXPECT_EQ("other", readFile(scratch.file("other")));
}

TEST_F(Moving, foldersKeepLinksAndModes) {
  scratch.write("tree/file", "x");
  fs::create_symlink("file", scratch.file("tree/link"));
  fs::permissions(scratch.file("tree/file"), fs::perms(0640));
  EXPECT_TRUE(cpCocoa(scratch.file("tree"), scratch.file("copy"), std::nullopt));
  EXPECT_EQ("file", fs::read_symlink(scratch.file("copy/link")));
  EXPECT_EQ(fs::perms(0640), fs::status(scratch.file("copy/file")).permissions());
}

TEST_F(Moving, acrossVolumes) {
  if (!canMount()) GTEST_SKIP() << "a mount of one's own is not possible here";
  const std::string other = scratch.makeFolder("other");
  EXPECT_TRUE(inChild([&] {
    ASSERT_TRUE(mountScratch(other.c_str(), "size=64k"));
    fs::permissions(a, fs::perms(0604));
    EXPECT_TRUE(mv(a, other + "/a", std::nullopt));
    EXPECT_EQ("a", readFile(other + "/a"));
    EXPECT_EQ(fs::perms(0604), fs::status(other + "/a").permissions());
    EXPECT_FALSE(exists(a));
    const std::string large = scratch.write("large", std::string(200'000, 'x'));
    RecordingLog log;
    EXPECT_FALSE(mv(large, other + "/large", "y"));
    EXPECT_TRUE(log.has("mv File moved       :-( '" + other + "/large', err…"));
    EXPECT_TRUE(log.hasContaining("No space left on device"));
    EXPECT_FALSE(cpCocoa(large, other + "/large", "y"));
    EXPECT_EQ(200'000u, readFile(large).size());
    EXPECT_EQ(1u, platform::fileManager().get()->entries(other)->size());
  }));
}

}  // namespace
}  // namespace vistrelle
